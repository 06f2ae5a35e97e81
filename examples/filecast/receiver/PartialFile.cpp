#include "receiver/PartialFile.h"

#include "wire/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

// Twice a window: what waits to be written, at most WRITE_SAMPLES - 1 samples, and the window
// behind it never meet.
constexpr std::int64_t RING_SAMPLES = std::int64_t{2} * Bitmap::CAPACITY;
constexpr std::int64_t WRITE_SAMPLES = 128;

std::size_t RingPlace(std::int64_t number) {
  return static_cast<std::size_t>((number - 1) % RING_SAMPLES);
}

// The name by which a file without one can be linked.
std::string DescriptorPath(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

}  // namespace

PartialFile::PartialFile(int folder, const FileDescription& file, const std::string& id)
    : _folder(folder), _file(file), _hiddenName(".filecast-" + id),
      _ring(static_cast<std::size_t>(RING_SAMPLES) * file.sampleSize) {
  TargetCheck();
  Open();  // last: once the file is there, nothing in the constructor can fail
}

PartialFile::~PartialFile() {
  if (_descriptor >= 0)
    close(_descriptor);
  if (_isHidden)
    unlinkat(_folder, _hiddenName.c_str(), 0);
}

void PartialFile::TargetCheck() const {
  struct stat status = {};
  if (fstatat(_folder, _file.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISDIR(status.st_mode))
    FailureThrow("cannot make a file", EISDIR);
  struct statvfs disk = {};
  // A file system that does not count its blocks tells nothing: then writing shows what fits.
  if (fstatvfs(_folder, &disk) == 0 && disk.f_blocks > 0 && disk.f_frsize > 0 &&
      (_file.size + disk.f_frsize - 1) / disk.f_frsize > disk.f_bavail)
    FailureThrow("cannot make a file", ENOSPC);
}

// A file without a name is of use only where its descriptor can be linked.
void PartialFile::Open() {
  _descriptor = openat(_folder, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, 0666);
  if (_descriptor >= 0 && access(DescriptorPath(_descriptor).c_str(), F_OK) == 0)
    return;
  if (_descriptor >= 0)
    close(_descriptor);
  _descriptor = openat(_folder, _hiddenName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (_descriptor < 0)
    FailureThrow("cannot make a file", errno);
  _isHidden = true;
}

void PartialFile::SampleStore(std::int64_t number, const char* bytes, int length) {
  std::memcpy(_ring.data() + RingPlace(number) * _file.sampleSize, bytes,
              static_cast<std::size_t>(length));
}

void PartialFile::LeadMove(std::int64_t lead) {
  _lead = lead;
  // A lead can jump by a whole window, so this is once more than it may lie behind.
  if (_lead - _written >= WRITE_SAMPLES)
    SamplesWrite(_lead);
}

// Writes the samples before `end`, in one piece or, where the ring ends, in two.
void PartialFile::SamplesWrite(std::int64_t end) {
  while (_written < end) {
    const std::size_t place = RingPlace(_written);
    const std::int64_t toRingEnd = RING_SAMPLES - static_cast<std::int64_t>(place);
    const std::int64_t stop = std::min(end, _written + toRingEnd);
    const std::size_t length = static_cast<std::size_t>(
        std::min(_file.size, _file.SampleOffset(stop)) - _file.SampleOffset(_written));
    const char* bytes = _ring.data() + place * _file.sampleSize;
    BytesWrite(bytes, length);
    _checksum.Add(bytes, length);
    _written = stop;
  }
}

void PartialFile::BytesWrite(const char* bytes, std::size_t length) {
  while (length > 0) {
    const ssize_t done = write(_descriptor, bytes, length);
    if (done < 0 && errno == EINTR)
      continue;
    if (done < 0)
      FailureThrow("cannot write", errno);
    bytes += done;
    length -= static_cast<std::size_t>(done);
  }
}

void PartialFile::Finish(std::uint64_t checksum) {
  SamplesWrite(_lead);
  if (_checksum.Get() != checksum)
    throw Failure(ExitCode::CHECKSUM_WRONG, _file.name + ": the checksum is wrong");
  if (fsync(_descriptor) != 0)
    FailureThrow("cannot write", errno);
  NameGive();
  close(_descriptor);
  _descriptor = -1;
  fsync(_folder);  // makes the name last, too; where a folder cannot do that, it is as good as ever
}

// A new name is given in one step. A name that is in use has to be replaced, which only a rename
// does, and only a file that has a name can be renamed. One that is killed between the two steps
// leaves a whole file under the hidden name.
void PartialFile::NameGive() {
  if (!_isHidden && LinkMake(_file.name))
    return;
  _isHidden = _isHidden || LinkMake(_hiddenName);
  if (!_isHidden)
    FailureThrow("cannot name the file", EEXIST);
  if (renameat(_folder, _hiddenName.c_str(), _folder, _file.name.c_str()) != 0)
    FailureThrow("cannot name the file", errno);
  _isHidden = false;
}

// Returns false when the name is in use.
bool PartialFile::LinkMake(const std::string& name) const {
  if (linkat(AT_FDCWD, DescriptorPath(_descriptor).c_str(), _folder, name.c_str(),
             AT_SYMLINK_FOLLOW) == 0)
    return true;
  if (errno != EEXIST)
    FailureThrow("cannot name the file", errno);
  return false;
}

void PartialFile::FailureThrow(const char* what, int error) const {
  const bool isFull = error == ENOSPC || error == EDQUOT || error == EFBIG;
  const bool isTaken = error == EISDIR || error == ENOTEMPTY;
  throw Failure(isFull    ? ExitCode::DISK_FULL
                : isTaken ? ExitCode::NAME_TAKEN
                          : ExitCode::WRITE_FAILED,
                _file.name + ": " + what + ": " + std::strerror(error));
}
