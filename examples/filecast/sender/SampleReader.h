#ifndef FILECAST_SENDER_SAMPLE_READER_H
#define FILECAST_SENDER_SAMPLE_READER_H

#include "wire/Datagram.h"

#include <array>
#include <string>
#include <vector>

/// The file that is sent: its description, and its samples in any order. Samples are read in blocks
/// of 64. The last 16 blocks are kept, so a repair seldom needs another read.
///
/// Everything throws a `Failure` when the file cannot be read.
class SampleReader {
public:
  /// Opens the file and reads it once, for its checksum. `name` is what receivers call it; empty
  /// for the last part of the path.
  SampleReader(const std::string& path, const std::string& name);
  ~SampleReader();
  SampleReader(const SampleReader&) = delete;
  SampleReader& operator=(const SampleReader&) = delete;

  const FileDescription& FileGet() const { return _file; }
  /// The bytes of a sample, good until the next call; `FileGet().SampleLength(number)` of them.
  const char* SampleGet(std::int64_t number);

private:
  struct Block {
    std::int64_t index = -1;
    std::vector<char> bytes;
  };

  void Describe(const std::string& name);
  std::size_t BytesRead(char* bytes, std::size_t length, std::uint64_t offset);

  static constexpr int BLOCK_SAMPLES = 64;

  std::string _path;
  int _descriptor;
  FileDescription _file;
  std::array<Block, 16> _blocks;
};

#endif
