#ifndef FILECAST_SENDER_SAMPLE_READER_H
#define FILECAST_SENDER_SAMPLE_READER_H

#include "wire/Checksum.h"
#include "wire/Datagram.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

/// The file that is sent: its description, and its samples in any order. Samples are read in blocks
/// of 64. The last 16 blocks are kept, so a repair seldom needs another read.
///
/// The checksum is made of the samples as they are asked for the first time, so sending begins at
/// once. A file that changes in the meantime has receivers with other bytes than those, which they
/// find out.
///
/// Everything throws a `Failure` when the file cannot be read.
class SampleReader {
public:
  /// Opens the file. `name` is what receivers call it; empty for the last part of the path.
  SampleReader(const std::string& path, const std::string& name);
  ~SampleReader();
  SampleReader(const SampleReader&) = delete;
  SampleReader& operator=(const SampleReader&) = delete;

  const FileDescription& FileGet() const { return _file; }
  /// The bytes of a sample, good until the next call; `FileGet().SampleLength(number)` of them. No
  /// sample is asked for before the one in front of it.
  const char* SampleGet(std::int64_t number);
  /// Once the last sample was asked for.
  std::optional<std::uint64_t> ChecksumGet() const;

private:
  struct Block {
    std::int64_t index = -1;
    std::vector<char> bytes;
  };

  void Describe(const std::string& name);
  const Block& BlockGet(std::int64_t index);
  std::size_t BytesRead(char* bytes, std::size_t length, std::uint64_t offset);

  static constexpr int BLOCK_SAMPLES = 64;

  std::string _path;
  int _descriptor;
  FileDescription _file;
  std::array<Block, 16> _blocks;
  Checksum _checksum;        ///< of the samples so far
  std::int64_t _summed = 0;  ///< samples in the checksum
};

#endif
