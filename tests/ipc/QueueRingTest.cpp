#include "ipc/IpcHost.h"

#include <algorithm>
#include <climits>
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

// Every position in a ring, and those that another process may write into the header.
std::vector<int> Offsets(int size) {
  std::vector<int> offsets{INT_MIN, -1, size + 1, INT_MAX};
  for (int offset = 0; offset <= size; ++offset)
    offsets.push_back(offset);
  return offsets;
}

const std::string TEXT = "abcdefghijklmnopqrstuvwxyz";

// One message is sent and one received, by a model: beside what it says, no byte changes.
void MessagesMove(Queue& queue, const ShmMsgQHeader& header, int length) {
  const int capacity = queue._capacity;
  const bool isInside = std::min(header.writeOffset, header.readOffset) >= 0 &&
                        std::max(header.writeOffset, header.readOffset) < capacity;
  const int used =
      isInside ? (header.writeOffset - header.readOffset + capacity) % capacity : capacity;
  const int free = isInside ? capacity - 1 - used : 0;
  const bool fits = length >= 0 && length <= free - 4;
  const std::string text = fits ? TEXT.substr(0, static_cast<std::size_t>(length)) : "";
  const auto expect = [&, before = Memory(queue)](int write, int read, const std::string& ring) {
    const ShmMsgQHeader offsets{write, read};
    std::string memory = before;
    memory.replace(4, 8, reinterpret_cast<const char*>(&offsets), 8).replace(12, ring.size(), ring);
    ASSERT_EQ(Memory(queue), memory);
  };
  std::string ring = TEXT.substr(0, static_cast<std::size_t>(capacity));
  *queue._header = header;
  ring.copy(queue.Ring(), ring.size());
  ASSERT_EQ(queue.SpaceGet(), free);
  ASSERT_EQ(queue.SendInternal(text.data(), length), fits ? 0 : 2);
  ASSERT_EQ(ValueGet(queue._mutexId), 1) << "given back, also after a refusal";
  const int end = fits ? (header.writeOffset + 4 + length) % capacity : header.writeOffset;
  expect(end, header.readOffset, fits ? Overlaid(ring, header.writeOffset, length, text) : ring);
  if (isInside && used == 0)
    return;  // to receive would be to wait
  *queue._header = header;
  ring = isInside ? Overlaid(ring, header.readOffset, length) : ring;
  ring.copy(queue.Ring(), ring.size());
  const bool isSound = isInside && length >= 0 && length <= used - 4;
  const int asked = length % 2 == 0 ? 2 : 30;
  char buffer[31] = "";
  ASSERT_EQ(queue.Recv(buffer, asked), isSound ? std::min(asked, length) : -1);
  if (isSound) {
    ASSERT_EQ(buffer, (ring + ring)
                          .substr(static_cast<std::size_t>(header.readOffset) + 4,
                                  static_cast<std::size_t>(std::min(asked, length))));
  }
  expect(header.writeOffset,
         isSound ? (header.readOffset + 4 + length) % capacity : header.readOffset, ring);
}

}  // namespace

TEST_F(QueueRing, ObjectsHaveTheAgreedKeysModesAndSizes) {
  // clang-format off
  const struct { int id; unsigned int key; } rows[] = {
      {0, 0xABBD0000},
      {1, 0xABBD0002},
      {-1, 0xABBCFFFE},
      {0x40000000, 0x2BBD0000},
  };
  // clang-format on
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

TEST_F(QueueRing, SendAndRecvMoveASoundMessageAndTouchNothingElse) {
  for (const int size : {0, 3, 4, 5, 8, 19}) {
    OwnQueue queue(1, 1, static_cast<unsigned int>(size));
    for (const int write : Offsets(size))
      for (const int read : Offsets(size))
        for (int length = -1; length <= size; ++length) {
          SCOPED_TRACE(testing::Message() << "size " << size << ", offsets " << write << " " << read
                                          << ", length " << length);
          MessagesMove(queue, {write, read}, length);
          if (HasFatalFailure())
            return;
        }
    MessagesMove(queue, {0, size}, INT_MAX);
    MessagesMove(queue, {0, size}, INT_MIN);
    EXPECT_EQ(queue.SendInternal(nullptr, 0), 1) << "no data";
  }
}

// The buffer cannot be written before the copy has faulted there.
TEST_F(QueueRing, RecvPassesTheLengthCopiesAndPassesThePayload) {
  static std::int32_t* offset;
  static std::int32_t passed;
  static void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  OwnQueue queue(1, 1, 60);
  offset = &queue._header->readOffset;
  EXPECT_EQ(queue.Send("abc", 3), 1);
  const auto before = std::signal(SIGSEGV, [](int) {
    passed = *offset;
    mprotect(page, 4096, PROT_READ | PROT_WRITE);
  });
  EXPECT_EQ(queue.Recv(static_cast<char*>(page), 3), 3);
  std::signal(SIGSEGV, before);
  EXPECT_EQ(passed, 4);
  EXPECT_EQ(*offset, 7);
  munmap(page, 4096);
}

TEST_F(QueueRing, DamagedLengthOfTheSegmentIsNotBelieved) {
  const OwnQueue creator(1, 1, 16);
  // A queue of capacity 0 is refused.
  // clang-format off
  const struct { unsigned int word; int capacity; unsigned int copied; } rows[] = {
      {0, 0, 0},
      {8, 0, 8},
      {9, 1, 9},
      {25, 17, 25},
      {26, 0, 25},
      {4092, 0, 25},
      {INT_MAX, 0, 25},
      {UINT_MAX, 0, 25},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.word);
    std::memcpy(creator._shm->base, &row.word, 4);
    {
      Queue opener(1, 1);
      EXPECT_EQ(opener.IsValid(), row.capacity != 0 ? 1 : 0);
      EXPECT_EQ(opener._capacity, row.capacity);
    }
    const std::string written = TEXT.substr(0, row.copied);
    std::string read(TEXT.size(), '!');
    EXPECT_EQ(ShMWrite(creator._shm, TEXT.data(), row.copied + 1), 0);
    EXPECT_EQ(ShMWrite(creator._shm, written.data(), row.copied), 1);
    EXPECT_EQ(std::string(creator._shm->base + 4, row.copied), written);
    EXPECT_EQ(ShMRead(creator._shm, read.data(), row.copied + 1), 0);
    EXPECT_EQ(ShMRead(creator._shm, read.data(), row.copied), 1);
    EXPECT_EQ(read, written + std::string(TEXT.size() - row.copied, '!'));
    shmid_ds segment{};
    shmctl(creator._shm->id, IPC_STAT, &segment);
    EXPECT_EQ(segment.shm_nattch, 1U) << "given back and left alone";
  }
  EXPECT_EQ(ShMWrite(nullptr, "", 0), 0);
  EXPECT_EQ(ShMRead(creator._shm, nullptr, 1), 0);
}
