#include "platform/DequeVoid.h"
#include "platform/KelDGram.h"
#include "platform/KelDebug.h"
#include "platform/KelNtpTime.h"
#include "platform/KelSemaphore.h"
#include "platform/VornCDRStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr unsigned int LOOPBACK = 0x7F000001;

TEST(CDRStream, AlignsItemsAndChangesNothingWhereOneDoesNotFit) {
  for (const auto order : {VORN_CDR_BIG_ENDIAN, VORN_CDR_LITTLE_ENDIAN})
    for (int capacity = 0; capacity <= 16; ++capacity)
      for (int start = 0; start <= capacity; ++start) {
        const int place = (start + 3) / 4 * 4, fits = place + 4 <= capacity ? 1 : 0;
        const int octetsFit = start + 3 <= capacity ? 1 : 0, end = fits != 0 ? place + 4 : start;
        const char* item = order == VORN_CDR_BIG_ENDIAN ? "\xa1\xb2\xc3\xd4" : "\xd4\xc3\xb2\xa1";
        std::string bytes(16, '\x5a'), expected = bytes;
        if (fits != 0)
          std::copy_n(item, 4, std::fill_n(expected.begin() + start, place - start, '\0'));
        VORNCDRStream stream{order, bytes.data(), capacity, start}, again = stream, octets = stream;
        std::uint32_t written = 0xA1B2C3D4, read = 7;
        EXPECT_EQ(VornCDR4ByteSerialize(&stream, &written), fits);
        EXPECT_EQ(VornCDR4ByteDeserialize(&again, &read), fits);
        EXPECT_TRUE(bytes == expected && read == (fits != 0 ? written : 7)) << start << capacity;
        EXPECT_TRUE(stream.position == end && again.position == end) << start << capacity;
        EXPECT_EQ(VornCDROctetsSerialize(&octets, "xyz", 3), octetsFit);
        EXPECT_EQ(VornCDRStreamPositionGet(&octets), start + 3 * octetsFit);
        EXPECT_EQ(VornCDRStreamPositionSet(&octets, capacity + 1 - start % 2), start % 2);
      }
}

// Two endpoints, of which `near` has a port on the loopback interface.
struct DGram : testing::Test {
  KELDGram near, far;
  KELNetioAddr to, from;
  char text[9] = "datagram", buffer[9] = "";

  void SetUp() override {
    ASSERT_EQ(KelDGramInitialize(&near), 1);
    ASSERT_EQ(KelDGramInitialize(&far), 1);
    const int port = near.bind(&near, LOOPBACK, 0);
    ASSERT_GT(port, 0) << "127.0.0.1: " << std::strerror(errno);
    KelNetioAddrInitialize(&to, LOOPBACK, port);
  }
  void TearDown() override {
    KelDGramRelease(&near);
    KelDGramRelease(&far);
  }
};

TEST_F(DGram, CarriesDatagramsOnTheLoopbackInterface) {
  ASSERT_EQ(far.sendTo(&far, &to, text, 8), 1);
  ASSERT_EQ(far.sendTo(&far, &to, nullptr, 0), 1);
  ASSERT_EQ(near.receiveFrom(&near, &from, buffer, 3), 8);
  EXPECT_STREQ(buffer, "dat");
  EXPECT_EQ(near.receiveFrom(&near, nullptr, buffer, 3), 0);
  ASSERT_EQ(near.sendTo(&near, &from, text, 5), 1);
  EXPECT_EQ(far.receiveFrom(&far, &to, buffer, 8), 5);
  EXPECT_STREQ(buffer, "datag");
}

TEST_F(DGram, RefusesWithItsReason) {
  KELNetioAddr none, beyond = to;
  beyond.port += 65536;
  const auto refused = [](int result, int failure) { return result == failure ? errno : 0; };
  EXPECT_EQ(refused(far.bind(&far, LOOPBACK, to.port), 0), EADDRINUSE);
  EXPECT_EQ(refused(far.bind(&far, LOOPBACK, 65536), 0), EINVAL);
  EXPECT_EQ(refused(near.receiveFrom(&near, &from, buffer, 8), -1), EAGAIN);
  EXPECT_EQ(refused(far.sendTo(&far, &beyond, text, 8), 0), EINVAL);
  EXPECT_EQ(refused(far.sendTo(&far, &none, text, 8), 0), EINVAL);
  EXPECT_EQ(refused(far.optionSet(&far, 0x200, text, 4), -1), ENOPROTOOPT);
}

TEST(Semaphore, IsBinaryAndWaitsAsLongAsItIsTold) {
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  const KELNtpTime none, brief{0, 1U << 26};
  KELNtpTime before, after;
  ASSERT_EQ(KelNtpTimeInit(nullptr, &after), 1);
  EXPECT_EQ(after.sec, 1 << 30);
  EXPECT_EQ(after.frac, 0U);
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  EXPECT_EQ(KelNtpTimeGet(&before), 1);
  EXPECT_EQ(KelSemaphoreTake(semaphore, &brief), 0);
  KelNtpTimeGet(&after);
  EXPECT_GE((after.sec - before.sec) * 0x1p32 + after.frac - before.frac, 0x1p26 - 8);
  for (const char* give : {"a taken one", "a free one"})
    EXPECT_EQ(KelSemaphoreGive(semaphore), 1) << give;
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  EXPECT_EQ(KelSemaphoreTake(semaphore, &none), 0);
  std::thread giver([semaphore] { KelSemaphoreGive(semaphore); });
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  giver.join();
  KelSemaphoreDelete(semaphore);
}

TEST(DequeVoid, IsADeque) {
  DequeVoid list;
  DequeVoidNode nodes[12];
  std::vector<DequeVoidNode*> model;
  std::mt19937 random(4);
  for (int step = 0; step < 3000; ++step) {
    DequeVoidNode* node = &nodes[random() % 12];
    const auto place = model.begin() + static_cast<std::ptrdiff_t>(random() % (model.size() + 1));
    DequeVoidNode* where = place != model.end() ? *place : nullptr;
    if (const auto held = std::find(model.begin(), model.end(), node); held != model.end()) {
      EXPECT_EQ(list.RemoveNode(node), node);
      model.erase(held);
    } else if (step % 2 != 0) {
      list.InsertNodeBefore(where, node);
      model.insert(where != nullptr ? place : model.begin(), node);
    } else {
      list.InsertNodeAfter(where, node);
      model.insert(where != nullptr ? place + 1 : place, node);
    }
    ASSERT_EQ(list.count, std::ssize(model));
    DequeVoidNode *first = list.first, *last = list.last;
    for (std::size_t i = 0; i < model.size(); first = first->next, last = last->previous, ++i)
      ASSERT_TRUE(first == model[i] && last == model[model.size() - 1 - i]) << step;
    EXPECT_TRUE(first == nullptr && last == nullptr) << step;
  }
}

TEST(DebugPrint, CutsLongTextsAndGivesThemToTheSink) {
  std::string printed;
  KelDebugSinkSet([](const char* text, void* to) { *static_cast<std::string*>(to) += text; },
                  &printed);
  EXPECT_EQ(KelDebugPrint("%d|", 7), 2);
  EXPECT_EQ(KelDebugPrint("%01500d", 7), 1023);
  KelDebugSinkSet(nullptr, nullptr);
  EXPECT_EQ(printed, "7|" + std::string(1023, '0'));
}

}  // namespace
