#include "platform/DequeVoid.h"
#include "platform/KelDGram.h"
#include "platform/KelDebug.h"
#include "platform/KelSemaphore.h"
#include "platform/VornCDRStream.h"

#include <algorithm>
#include <cerrno>
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

TEST(DGram, CarriesDatagramsOnTheLoopbackInterface) {
  KELDGram near, far;
  ASSERT_EQ(KelDGramInitialize(&near) + KelDGramInitialize(&far), 2);
  const int port = near.bind(&near, LOOPBACK, 0);
  EXPECT_TRUE(far.bind(&far, LOOPBACK, port) == 0 && errno == EADDRINUSE);
  EXPECT_TRUE(far.bind(&far, LOOPBACK, 65536) == 0 && errno == EINVAL);
  char text[] = "datagram", buffer[9] = "";
  KELNetioAddr to, from;
  EXPECT_TRUE(near.receiveFrom(&near, &from, buffer, 8) == -1 && errno == EAGAIN);
  KelNetioAddrInitialize(&to, LOOPBACK, port);
  EXPECT_EQ(far.sendTo(&far, &to, text, 8) + far.sendTo(&far, &to, nullptr, 0), 2);
  EXPECT_TRUE(near.receiveFrom(&near, &from, buffer, 3) == 8 && std::string(buffer) == "dat");
  EXPECT_EQ(near.receiveFrom(&near, nullptr, buffer, 3), 0);
  EXPECT_EQ(near.sendTo(&near, &from, text, 5), 1);
  EXPECT_TRUE(far.receiveFrom(&far, &to, buffer, 8) == 5 && std::string(buffer) == "datag");
  to.port += 65536;
  EXPECT_TRUE(far.sendTo(&far, &to, text, 8) == 0 && errno == EINVAL);
  EXPECT_TRUE(far.optionSet(&far, 0x200, text, 4) == -1 && errno == ENOPROTOOPT);
  KelDGramRelease(&near);
  KelDGramRelease(&far);
}

TEST(Semaphore, IsBinaryAndWaitsAsLongAsItIsTold) {
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  const KELNtpTime none, brief{0, 1U << 26};
  KELNtpTime before, after;
  EXPECT_TRUE(KelNtpTimeInit(nullptr, &after) == 1 && after.sec == 1 << 30 && after.frac == 0);
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr) + KelNtpTimeGet(&before), 2);
  EXPECT_EQ(KelSemaphoreTake(semaphore, &brief), 0);
  KelNtpTimeGet(&after);
  EXPECT_GE((after.sec - before.sec) * 0x1p32 + after.frac - before.frac, 0x1p26 - 8);
  EXPECT_EQ(KelSemaphoreGive(semaphore) + KelSemaphoreGive(semaphore), 2);
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
  EXPECT_EQ(KelDebugPrint("%d|", 7) + KelDebugPrint("%01500d", 7), 2 + 1023);
  KelDebugSinkSet(nullptr, nullptr);
  EXPECT_EQ(printed, "7|" + std::string(1023, '0'));
}

}  // namespace
