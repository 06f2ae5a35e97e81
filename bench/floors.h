#ifndef BENCH_FLOORS_H
#define BENCH_FLOORS_H

#include "hosts/VORNEnvironment.h"
#include "hosts/VORNHostMask.h"
#include "platform/KelNtpTime.h"
#include "support/Processes.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

/// The bare floors: what each operation of the library cannot do without, written by hand, with no
/// check that the operation does not need. All are here, so that one look shows what the library is
/// compared with.
///
/// A floor can be wrong. One for the queue copied between buffers that agreed in their last twelve
/// address bits, and took ten times as long as a floor with a ring that moves on.
namespace floors {

/// A queue as the library's: a ring of length-prefixed messages in a segment, three System V calls
/// for a message that is sent and taken (mutex down, semaphore set, mutex set), two copies, and one
/// more call when the receiver has to sleep.
class RingQueue {
public:
  explicit RingQueue(int size)
      : _mutex(semget(IPC_PRIVATE, 1, 0600)), _semaphore(semget(IPC_PRIVATE, 1, 0600)),
        _capacity(size) {
    const int segment =
        shmget(IPC_PRIVATE, sizeof(Header) + static_cast<std::size_t>(size), IPC_CREAT | 0600);
    void* place = segment >= 0 ? shmat(segment, nullptr, 0) : nullptr;
    shmctl(segment, IPC_RMID, nullptr);
    if (_mutex < 0 || _semaphore < 0 || reinterpret_cast<std::intptr_t>(place) == -1)
      SystemFail("System V objects");
    _header = new (place) Header;
    _ring = reinterpret_cast<char*>(_header + 1);
    Set(_mutex);
  }
  ~RingQueue() {
    shmdt(_header);
    semctl(_mutex, 0, IPC_RMID);
    semctl(_semaphore, 0, IPC_RMID);
  }
  RingQueue(const RingQueue&) = delete;
  RingQueue& operator=(const RingQueue&) = delete;

  bool Send(const char* data, int length) {
    Down(_mutex);
    const int write = _header->write.load(std::memory_order_relaxed);
    const int used = write - _header->read.load(std::memory_order_acquire);
    const bool fits = (used < 0 ? used + _capacity : used) + length + 4 < _capacity;
    if (fits) {
      CopyIn(write, reinterpret_cast<const char*>(&length), 4);
      CopyIn(Advance(write, 4), data, length);
      _header->write.store(Advance(write, 4 + length), std::memory_order_release);
      Set(_semaphore);
    }
    Set(_mutex);
    return fits;
  }

  int Receive(char* buffer) {
    const int read = _header->read.load(std::memory_order_relaxed);
    while (_header->write.load(std::memory_order_acquire) == read)
      Down(_semaphore);
    int length = 0;
    CopyOut(read, reinterpret_cast<char*>(&length), 4);
    CopyOut(Advance(read, 4), buffer, length);
    _header->read.store(Advance(read, 4 + length), std::memory_order_release);
    return length;
  }

private:
  struct Header {
    std::atomic<int> write{0};
    std::atomic<int> read{0};
  };

  static void Down(int set) {
    sembuf down{0, -1, 0};
    if (semop(set, &down, 1) != 0)
      SystemFail("semop");
  }
  static void Set(int set) { semctl(set, 0, SETVAL, 1); }
  int Advance(int at, int count) const {
    return at + count < _capacity ? at + count : at + count - _capacity;
  }
  void CopyIn(int at, const char* bytes, int count) {
    const auto first = static_cast<std::size_t>(std::min(count, _capacity - at));
    std::memcpy(_ring + at, bytes, first);
    std::memcpy(_ring, bytes + first, static_cast<std::size_t>(count) - first);
  }
  void CopyOut(int at, char* bytes, int count) const {
    const auto first = static_cast<std::size_t>(std::min(count, _capacity - at));
    std::memcpy(bytes, _ring + at, first);
    std::memcpy(bytes + first, _ring, static_cast<std::size_t>(count) - first);
  }

  int _mutex;
  int _semaphore;
  int _capacity;
  Header* _header = nullptr;
  char* _ring = nullptr;
};

inline bool DatagramSend(int descriptor, const char* bytes, std::size_t length,
                         const sockaddr_in& to) {
  return sendto(descriptor, bytes, length, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) ==
         static_cast<ssize_t>(length);
}

inline int DatagramWait(int descriptor) {
  timeval timeout{1, 0};
  fd_set set;
  FD_ZERO(&set);
  FD_SET(descriptor, &set);
  return select(descriptor + 1, &set, nullptr, nullptr, &timeout);
}

inline long DatagramReceive(int descriptor, char* bytes, std::size_t size) {
  sockaddr_in source{};
  socklen_t length = sizeof source;
  return recvfrom(descriptor, bytes, size, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&source),
                  &length);
}

/// Until the earliest of the deadlines that are enabled, in units of 2^-32 s.
struct Timer {
  std::int32_t mode;
  std::int64_t deadline;
  std::int64_t period;
};
inline std::int64_t SleepGet(const std::vector<Timer*>& timers, std::int64_t now,
                             std::int64_t longest) {
  std::int64_t earliest = INT64_MAX;
  for (const Timer* timer : timers)
    if (timer != nullptr && timer->mode == 1)
      earliest = std::min(earliest, timer->deadline);
  return std::clamp<std::int64_t>(earliest - now, 0, longest);
}

/// Stores of 32-bit words in big-endian order.
inline char* WordStore(char* place, std::uint32_t word) {
  word = htonl(word);
  std::memcpy(place, &word, sizeof word);
  return place + sizeof word;
}
inline char* WordsStore(char* place, const std::uint32_t* words, int count) {
  for (int i = 0; i < count; ++i)
    place = WordStore(place, words[i]);
  return place;
}
/// The same as a function that knows the room and the byte order only when it is called.
struct WordStream {
  char* place;
  const char* end;
  bool isSwapped;
};
[[gnu::noinline]] inline bool WordPut(WordStream* stream, const std::uint32_t* word) {
  if (stream->end - stream->place < 4)
    return false;
  const std::uint32_t bytes = stream->isSwapped ? __builtin_bswap32(*word) : *word;
  std::memcpy(stream->place, &bytes, sizeof bytes);
  stream->place += sizeof bytes;
  return true;
}
inline const char* WordLoad(const char* place, std::uint32_t* word) {
  std::memcpy(word, place, sizeof *word);
  *word = ntohl(*word);
  return place + sizeof *word;
}

/// What a list of hosts and subnets says of one address, over an array of the same entries.
inline bool HostAdmit(const std::vector<VORNHostMask>& list, unsigned int address) {
  bool sawHost = false, sawSubnet = false, isHost = false, isInside = false;
  for (const VORNHostMask& entry : list) {
    const bool matches = (address & entry.mask) == entry.address;
    if (entry.mask == 0xFFFFFFFF) {
      sawHost = true;
      isHost = isHost || matches;
    } else {
      sawSubnet = true;
      isInside = isInside || matches;
    }
    if (isHost && isInside)
      return true;
  }
  return (!sawHost || isHost) && (!sawSubnet || isInside);
}

inline bool ListsShare(const std::vector<unsigned int>& a, const std::vector<unsigned int>& b) {
  for (const unsigned int address : a)
    for (const unsigned int other : b)
      if (address == other)
        return true;
  return false;
}

/// Comments dropped, blanks joined to one separator.
inline int TextFilter(const char* input, int length, char* output) {
  int written = 0;
  bool isComment = false, isBlankBefore = true;
  for (int i = 0; i < length; ++i) {
    const char byte = input[i];
    isComment = byte == '#' || (isComment && byte != '\n');
    if (isComment)
      continue;
    const bool isBlank = byte == ' ' || byte == '\t' || byte == '\n' || byte == ':';
    if (!isBlank || !isBlankBefore)
      output[written++] = isBlank ? ':' : byte;
    isBlankBefore = isBlank;
  }
  return written;
}

/// A file multicast by a bare loop. The receivers say in shared memory how far they are, which
/// costs nothing: so the sender goes as fast as they take datagrams, and none is lost but on
/// purpose. They pause when few have come, since to be woken for each would cost more than to take
/// it, and write many at a time.
constexpr long SAMPLE_SIZE = 1408, SAMPLE_HEADER = 32;
constexpr long SAMPLES_AHEAD = 128;  // fewer than a receive buffer holds
struct Flow {
  std::atomic<long> taken[8];
  std::atomic<long> written[8];  ///< bytes
};

inline void SamplesSend(int descriptor, const sockaddr_in& to, const char* file, long size,
                        int receivers, const Flow& flow) {
  char datagram[SAMPLE_HEADER + SAMPLE_SIZE] = {};
  for (long number = 0; number * SAMPLE_SIZE < size; ++number) {
    for (int i = 0; i < receivers; ++i)
      while (number - flow.taken[i].load(std::memory_order_acquire) >= SAMPLES_AHEAD)
        sched_yield();
    const long length = std::min(SAMPLE_SIZE, size - number * SAMPLE_SIZE);
    std::memcpy(datagram, &number, sizeof number);
    std::memcpy(datagram + SAMPLE_HEADER, file + number * SAMPLE_SIZE,
                static_cast<std::size_t>(length));
    if (!DatagramSend(descriptor, datagram, static_cast<std::size_t>(SAMPLE_HEADER + length), to))
      SystemFail("sendto");
  }
}

/// The datagram's length, waiting for it: at once, as long as each comes soon after the last.
inline long SampleTake(int descriptor, char* datagram, std::size_t size, int* inARow) {
  for (;;) {
    const long length = recv(descriptor, datagram, size, MSG_DONTWAIT);
    if (length >= 0) {
      ++*inARow;
      return length;
    }
    if (errno != EAGAIN)
      SystemFail("recv");
    const timespec pause{0, 50'000};
    if (*inARow > 0 && *inARow < 32)
      nanosleep(&pause, nullptr);
    else if (DatagramWait(descriptor) < 0)
      SystemFail("select");
    *inARow = 0;
  }
}

/// Loses `percent` of what it takes and writes the rest to `output`, 64 samples at a time.
inline void SamplesReceive(int descriptor, int output, long size, unsigned int percent,
                           std::atomic<long>* taken, std::atomic<long>* written) {
  char datagram[SAMPLE_HEADER + SAMPLE_SIZE];
  std::vector<char> kept;
  kept.reserve(64 * SAMPLE_SIZE);
  const auto write = [&] {
    const auto length = static_cast<ssize_t>(kept.size());
    if (::write(output, kept.data(), kept.size()) != length)
      SystemFail("write");
    written->fetch_add(length, std::memory_order_relaxed);
    kept.clear();
  };
  std::uint32_t random = 0x9E3779B9U ^ static_cast<std::uint32_t>(getpid());
  int inARow = 0;
  for (long number = 0; (number + 1) * SAMPLE_SIZE < size;) {
    const long length = SampleTake(descriptor, datagram, sizeof datagram, &inARow);
    std::memcpy(&number, datagram, sizeof number);
    taken->store(number + 1, std::memory_order_release);
    random ^= random << 13;
    random ^= random >> 17;
    random ^= random << 5;
    if (random % 100 < percent)
      continue;
    kept.insert(kept.end(), datagram + SAMPLE_HEADER, datagram + length);
    if (kept.size() > 63 * SAMPLE_SIZE)
      write();
  }
  write();
}

}  // namespace floors

#endif
