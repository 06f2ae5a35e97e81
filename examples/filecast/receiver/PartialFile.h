#ifndef FILECAST_RECEIVER_PARTIAL_FILE_H
#define FILECAST_RECEIVER_PARTIAL_FILE_H

#include "wire/Checksum.h"
#include "wire/Datagram.h"

#include <string>
#include <vector>

/// A file that is being received. It has no name until it is whole, verified and synced; then it
/// gets its final name, and replaces a file that has it. Until then a file with the final name
/// stays as it was, and the system removes the new one when the program ends in any way.
///
/// Two cases need a hidden name, `.filecast-ID`, which the destructor removes. Where the file
/// system makes no files without a name, the file has the hidden one from the start. And because a
/// link never replaces a name, a file whose final name is in use gets the hidden one first and is
/// renamed at once.
///
/// Samples are kept in a ring until all before them are there, and are written in order. So memory
/// does not depend on the file's size, disk space does not depend on what a sender announces, and
/// the checksum is computed as the file is written.
class PartialFile {
public:
  /// Opens the file in the folder of descriptor `folder`, which must stay open. `id` tells its
  /// hidden name from those of other receivers. Throws a `Failure`, as all operations do: here also
  /// when a folder has the final name or when the disk has no room for the whole file, so that
  /// nothing is sent in vain.
  PartialFile(int folder, const FileDescription& file, const std::string& id);
  ~PartialFile();
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;

  /// Keeps a sample inside the window of a `ReceiveWindow` whose lead was given to `LeadMove`.
  void SampleStore(std::int64_t number, const char* bytes, int length);
  /// Tells that all samples before `lead` were stored; writes them once they are many.
  void LeadMove(std::int64_t lead);
  /// Writes the rest, compares with the sender's checksum and gives the file its final name.
  void Finish(std::uint64_t checksum);

private:
  void TargetCheck() const;
  void Open();
  void SamplesWrite(std::int64_t end);
  void BytesWrite(const char* bytes, std::size_t length);
  void NameGive();
  bool LinkMake(const std::string& name) const;
  [[noreturn]] void FailureThrow(const char* what, int error) const;

  int _folder;
  FileDescription _file;
  std::string _hiddenName;
  bool _isHidden = false;  ///< has the hidden name
  std::vector<char> _ring;
  std::int64_t _written = 1;  ///< first sample that is not written yet
  std::int64_t _lead = 1;
  Checksum _checksum;
  int _descriptor = -1;
};

#endif
