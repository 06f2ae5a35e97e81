#include "ipc/IpcHost.h"

#include <algorithm>
#include <climits>
#include <ostream>
#include <vector>

namespace {

using QueueRing = EmptiedHost;

// The bytes of `word` and of `payload`, laid over `ring` from `position` on, going round at its
// end.
std::string Overlaid(std::string ring, int position, int word, const std::string& payload = "") {
  const std::string bytes = std::string(reinterpret_cast<const char*>(&word), 4) + payload;
  for (std::size_t i = 0; i < bytes.size(); ++i)
    ring[(static_cast<std::size_t>(position) + i) % ring.size()] = bytes[i];
  return ring;
}

// All that a queue has and 50 bytes more, which are mapped.
std::string Memory(const Queue& queue) {
  return {queue._shm->base, 12 + static_cast<std::size_t>(queue._capacity) + 50};
}

struct Case {
  int size;
  ShmMsgQHeader header;
  int used;  // bytes between the offsets; -1 for damaged ones
};

std::ostream& operator<<(std::ostream& to, const Case& row) {
  return to << "size " << row.size << ", offsets " << row.header.writeOffset << " "
            << row.header.readOffset;
}

// Every pair of offsets in some rings, and those that another process has damaged.
std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const int size : {0, 3, 4, 5, 8, 19}) {
    std::vector<int> offsets{INT_MIN, -1, size + 1, INT_MAX};
    for (int offset = 0; offset <= size; ++offset)
      offsets.push_back(offset);
    for (const int write : offsets)
      for (const int read : offsets) {
        const bool isSound = std::min(write, read) >= 0 && std::max(write, read) <= size;
        cases.push_back(
            {size, {write, read}, isSound ? (write - read + size + 1) % (size + 1) : -1});
      }
  }
  return cases;
}

const std::string TEXT = "abcdefghijklmnopqrstuvwxyz";

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

TEST_F(QueueRing, SendWritesOneMessageWhereItFitsAndNothingElse) {
  for (const Case& row : Cases()) {
    OwnQueue queue(1, 1, static_cast<unsigned int>(row.size));
    const int free = row.used >= 0 ? row.size - row.used : 0;
    for (const int length : {0, 1, 2, free - 4, free - 3}) {
      if (length < 0)
        continue;
      SCOPED_TRACE(testing::Message() << row << ", length " << length);
      const std::string payload = TEXT.substr(0, static_cast<std::size_t>(length));
      *queue._header = row.header;
      std::memset(queue.Ring(), '.', static_cast<std::size_t>(row.size) + 1);
      const std::string ring = queue.RingText();
      std::string memory = Memory(queue);
      ASSERT_EQ(queue.SpaceGet(), free);
      ASSERT_EQ(queue.SendInternal(payload.data(), length), length + 4 <= free ? 0 : 2);
      ASSERT_EQ(ValueGet(queue._mutexId), 1) << "given back, also after a refusal";
      if (length + 4 <= free) {
        const int end = (row.header.writeOffset + 4 + length) % (row.size + 1);
        memory.replace(4, 4, reinterpret_cast<const char*>(&end), 4);
        memory.replace(12, ring.size(), Overlaid(ring, row.header.writeOffset, length, payload));
      }
      ASSERT_EQ(Memory(queue), memory);
    }
    ASSERT_EQ(queue.SendInternal(nullptr, 0), 1) << "no data";
  }
}

TEST_F(QueueRing, RecvPassesOneSoundMessageAndWritesNothingElse) {
  for (const Case& row : Cases()) {
    OwnQueue queue(1, 1, static_cast<unsigned int>(row.size));
    for (const int length : {INT_MIN, -1, 0, 3, row.used - 4, row.used - 3, INT_MAX}) {
      if (row.used == 0)
        continue;  // it would wait
      SCOPED_TRACE(testing::Message() << row << ", length " << length);
      *queue._header = row.header;
      TEXT.copy(queue.Ring(), static_cast<std::size_t>(row.size) + 1);
      if (row.used > 0)
        Overlaid(queue.RingText(), row.header.readOffset, length).copy(queue.Ring(), TEXT.size());
      const std::string twice = queue.RingText() + queue.RingText();
      std::string memory = Memory(queue);
      const bool isSound = row.used >= 4 && length >= 0 && length <= row.used - 4;
      const int asked = row.header.readOffset % 2 == 0 ? 2 : 30;
      const int copied = isSound ? std::min(asked, length) : -1;
      char buffer[31] = "";
      ASSERT_EQ(queue.Recv(buffer, asked), copied);
      if (isSound) {
        const int start = row.header.readOffset + 4;
        ASSERT_EQ(buffer,
                  twice.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(copied)));
        const int end = (start + length) % (row.size + 1);
        memory.replace(8, 4, reinterpret_cast<const char*>(&end), 4);
      }
      ASSERT_EQ(Memory(queue), memory);
    }
  }
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
