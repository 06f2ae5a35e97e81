#include "sender/SampleReader.h"

#include "wire/Checksum.h"
#include "wire/Failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

SampleReader::SampleReader(const std::string& path, const std::string& name)
    : _path(path), _descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  if (_descriptor < 0)
    throw Failure(ExitCode::FILE_UNREADABLE, path + ": " + std::strerror(errno));
  try {
    Describe(name.empty() ? std::filesystem::path(path).filename().string() : name);
  } catch (...) {
    close(_descriptor);
    throw;
  }
}

SampleReader::~SampleReader() { close(_descriptor); }

void SampleReader::Describe(const std::string& name) {
  struct stat status = {};
  if (fstat(_descriptor, &status) != 0 || !S_ISREG(status.st_mode))
    throw Failure(ExitCode::FILE_UNREADABLE, _path + ": not a regular file");
  if (static_cast<std::uint64_t>(status.st_size) > LARGEST_FILE)
    throw Failure(ExitCode::FILE_UNREADABLE, _path + ": larger than a terabyte");
  if (!FileNameIsSafe(name))
    throw Failure(ExitCode::FILE_UNREADABLE,
                  _path + ": receivers would refuse its name; give another one with --name");
  _file.name = name;
  _file.sampleSize = SAMPLE_CAPACITY;
  std::vector<char> bytes(std::size_t{1} << 18);
  while (const std::size_t length = BytesRead(bytes.data(), bytes.size(), _file.size)) {
    _file.checksum = Checksum(_file.checksum, bytes.data(), length);
    _file.size += length;
  }
}

// Reads `length` bytes, fewer only at the end of the file.
std::size_t SampleReader::BytesRead(char* bytes, std::size_t length, std::uint64_t offset) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t got =
        pread(_descriptor, bytes + done, length - done, static_cast<off_t>(offset + done));
    if (got == 0)
      break;
    if (got > 0)
      done += static_cast<std::size_t>(got);
    else if (errno != EINTR)
      throw Failure(ExitCode::FILE_UNREADABLE, _path + ": " + std::strerror(errno));
  }
  return done;
}

const char* SampleReader::SampleGet(std::int64_t number) {
  const std::int64_t index = (number - 1) / BLOCK_SAMPLES;
  Block& block = _blocks[static_cast<std::size_t>(index) % _blocks.size()];
  const std::size_t offset =
      static_cast<std::size_t>((number - 1) % BLOCK_SAMPLES) * _file.sampleSize;
  if (block.index != index) {
    block.index = -1;  // in case that the file cannot be read
    block.bytes.resize(std::size_t{BLOCK_SAMPLES} * _file.sampleSize);
    const std::uint64_t start = _file.SampleOffset(index * BLOCK_SAMPLES + 1);
    const std::uint64_t expected = std::min<std::uint64_t>(block.bytes.size(), _file.size - start);
    if (BytesRead(block.bytes.data(), block.bytes.size(), start) < expected)
      throw Failure(ExitCode::FILE_CHANGED, _path + ": became shorter while it was sent");
    block.index = index;
  }
  return block.bytes.data() + offset;
}
