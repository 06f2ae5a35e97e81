#include "sender/SampleReader.h"

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
  _file.size = static_cast<std::uint64_t>(status.st_size);
  char byte = 0;
  if (_file.size == 0 && BytesRead(&byte, 1, 0) != 0)
    throw Failure(ExitCode::FILE_UNREADABLE, _path + ": does not tell its size");
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
  const Block& block = BlockGet((number - 1) / BLOCK_SAMPLES);
  const char* bytes = block.bytes.data() +
                      static_cast<std::size_t>((number - 1) % BLOCK_SAMPLES) * _file.sampleSize;
  if (number == _summed + 1) {
    _checksum.Add(bytes, static_cast<std::size_t>(_file.SampleLength(number)));
    _summed = number;
  }
  return bytes;
}

std::optional<std::uint64_t> SampleReader::ChecksumGet() const {
  if (_summed < _file.SampleCount())
    return std::nullopt;
  return _checksum.Get();
}

const SampleReader::Block& SampleReader::BlockGet(std::int64_t index) {
  Block& block = _blocks[static_cast<std::size_t>(index) % _blocks.size()];
  if (block.index == index)
    return block;
  block.index = -1;  // in case that the file cannot be read
  block.bytes.resize(std::size_t{BLOCK_SAMPLES} * _file.sampleSize);
  const std::uint64_t start = _file.SampleOffset(index * BLOCK_SAMPLES + 1);
  const auto expected =
      static_cast<std::size_t>(std::min<std::uint64_t>(block.bytes.size(), _file.size - start));
  if (BytesRead(block.bytes.data(), expected, start) < expected)
    throw Failure(ExitCode::FILE_CHANGED, _path + ": became shorter while it was sent");
  block.index = index;
  return block;
}
