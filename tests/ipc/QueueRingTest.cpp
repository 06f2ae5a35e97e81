#include "ipc/IpcHost.h"

#include <algorithm>
#include <climits>
#include <random>

namespace {

using QueueRing = EmptiedHost;

std::string Frame(const std::string& payload) {
  const auto length = static_cast<std::int32_t>(payload.size());
  return std::string(reinterpret_cast<const char*>(&length), sizeof length) + payload;
}

// `frame` laid over `ring` from `position` on, going round at its end.
std::string Overlaid(std::string ring, int position, const std::string& frame) {
  for (std::size_t i = 0; i < frame.size(); ++i)
    ring[(static_cast<std::size_t>(position) + i) % ring.size()] = frame[i];
  return ring;
}

}  // namespace

TEST_F(QueueRing, ObjectsHaveTheAgreedKeysModesAndSizes) {
  const struct {
    int id;
    unsigned int key;
  } rows[] = {{0, 0xABBD0000}, {1, 0xABBD0002}, {-1, 0xABBCFFFE}, {0x40000000, 0x2BBD0000}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.id);
    const OwnQueue queue(1, row.id, 16);
    shmid_ds segment{};
    shmctl(shmget(static_cast<int>(row.key), 0, 0), IPC_STAT, &segment);
    EXPECT_EQ(segment.shm_segsz, 29U);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0664);
    EXPECT_EQ(std::string(queue._shm->base, 4), std::string("\x19\0\0\0", 4)) << "usable length";
    for (const int odd : {0, 1}) {
      const int set = semget(static_cast<int>(row.key) + odd, 1, 0);
      semid_ds state{};
      semctl(set, 0, IPC_STAT, &state);
      EXPECT_EQ(state.sem_perm.mode & 0777, 0664);
      EXPECT_EQ(ValueGet(set), odd) << "1 is a free mutex, 0 a semaphore without a message";
    }
    EXPECT_EQ(HostText(), "2/1");
  }
}

TEST_F(QueueRing, EveryLengthAtEveryOffset) {
  for (const int size : {0, 4, 5, 8, 16, 37}) {
    OwnQueue queue(1, 1, static_cast<unsigned int>(size));
    EXPECT_EQ(queue.SendInternal(nullptr, 0), 1) << "no data";
    for (int start = 0; start <= size; ++start)
      for (int length = 0; length <= size; ++length) {
        SCOPED_TRACE(testing::Message() << size << " " << start << " " << length);
        *queue._header = {start, start};
        std::memset(queue.Ring(), '.', static_cast<std::size_t>(size) + 1);
        const bool fits = length + 4 <= size;
        const std::string text = std::string("abcdefghijklmnopqrstuvwxyz0123456789-")
                                     .substr(0, static_cast<std::size_t>(length));
        const std::string before = queue.RingText();
        ASSERT_EQ(queue.SendInternal(text.data(), length), fits ? 0 : 2);
        ASSERT_EQ(ValueGet(queue._mutexId), 1) << "given back, also after a refusal";
        ASSERT_EQ(queue.RingText(), fits ? Overlaid(before, start, Frame(text)) : before);
        ASSERT_EQ(queue._header->writeOffset, fits ? (start + length + 4) % (size + 1) : start);
        ASSERT_EQ(queue.SpaceGet(), fits ? size - 4 - length : size);
        const int asked = length - length % 3;
        if (fits) {
          ASSERT_EQ(queue.Receive(asked), text.substr(0, static_cast<std::size_t>(asked)));
        }
        ASSERT_EQ(queue._header->readOffset, queue._header->writeOffset);
      }
  }
}

// What other processes may do to header and ring, against the same rules in 64-bit arithmetic.
TEST_F(QueueRing, DamagedHeaderIsRefusedAndNothingOutsideTheRingIsTouched) {
  constexpr std::size_t PAGE = 4096;  // all of it is mapped
  std::mt19937 random(2);
  int received = 0;
  for (const int size : {0, 3, 4, 9, 100}) {
    OwnQueue queue(1, 1, static_cast<unsigned int>(size));
    const int capacity = size + 1;
    const auto damage = [&] {
      const int choices[] = {INT_MIN, INT_MAX, -1, capacity, static_cast<int>(random())};
      const auto choice = random() % 20;
      return choice < 5 ? choices[choice]
                        : static_cast<int>(random() % static_cast<unsigned>(capacity));
    };
    char* const base = queue._shm->base;
    for (int round = 0; round < 3000; ++round) {
      std::generate(base + 4, base + PAGE, [&] { return static_cast<char>(random()); });
      const int write = damage();
      const int read = damage();
      const int planted = damage();
      *queue._header = {write, read};
      const bool inside = write >= 0 && write < capacity && read >= 0 && read < capacity;
      const int used = inside ? (write - read + capacity) % capacity : 0;
      const std::string word(reinterpret_cast<const char*>(&planted), 4);
      if (inside && size >= 3)
        Overlaid(queue.RingText(), read, word).copy(queue.Ring(), PAGE);
      const bool isMessage = inside && used >= 4 && planted >= 0 && planted <= used - 4;
      const std::string before(base, PAGE);
      ASSERT_EQ(queue.SpaceGet(), inside ? size - used : 0);
      if (!inside || write != read) {
        char buffer[50];
        ASSERT_EQ(queue.Recv(buffer, sizeof buffer), isMessage ? std::min(planted, 50) : -1);
        ASSERT_EQ(queue._header->readOffset, isMessage ? (read + 4 + planted) % capacity : read);
        queue._header->readOffset = read;
        ASSERT_EQ(std::string(base, PAGE), before);
        received += isMessage ? 1 : 0;
      }
      const bool fits = inside && size - used >= 4 + 3;
      ASSERT_EQ(queue.Send("abc", 3), fits ? 1 : 0);
      const std::string after(base, PAGE);
      const auto ringEnd = static_cast<std::size_t>(12 + capacity);
      ASSERT_EQ(after.substr(0, 4), before.substr(0, 4)) << "length of the segment";
      ASSERT_EQ(after.substr(ringEnd), before.substr(ringEnd)) << "what follows the ring";
      if (!fits) {
        ASSERT_EQ(after, before);
      }
    }
  }
  EXPECT_GT(received, 500) << "too few good messages to be worth it";
}

TEST_F(QueueRing, DamagedLengthOfTheSegmentIsNotBelieved) {
  const OwnQueue creator(1, 1, 16);
  const struct {
    unsigned int word;
    int capacity;  // 0: refused
    unsigned int copied;
  } rows[] = {{0, 0, 0},   {8, 0, 8},     {9, 1, 9},        {25, 17, 25},
              {26, 0, 25}, {4092, 0, 25}, {INT_MAX, 0, 25}, {UINT_MAX, 0, 25}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.word);
    std::memcpy(creator._shm->base, &row.word, 4);
    {
      Queue opener(1, 1);
      EXPECT_EQ(opener.IsValid(), row.capacity != 0 ? 1 : 0);
      EXPECT_EQ(opener._capacity, row.capacity);
    }
    char copy[64] = "";
    EXPECT_EQ(ShMWrite(creator._shm, copy, row.copied), 1);
    EXPECT_EQ(ShMWrite(creator._shm, copy, row.copied + 1), 0);
    EXPECT_EQ(ShMRead(creator._shm, copy, row.copied), 1);
    EXPECT_EQ(ShMRead(creator._shm, copy, row.copied + 1), 0);
    shmid_ds segment{};
    shmctl(creator._shm->id, IPC_STAT, &segment);
    EXPECT_EQ(segment.shm_nattch, 1U) << "given back and left alone";
  }
  EXPECT_EQ(ShMWrite(nullptr, "", 0), 0);
  EXPECT_EQ(ShMRead(creator._shm, nullptr, 1), 0);
}
