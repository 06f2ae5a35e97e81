#ifndef FILECAST_WIRE_DATAGRAM_H
#define FILECAST_WIRE_DATAGRAM_H

#include "platform/VornCDRStream.h"
#include "reliability/SequenceNumber.h"
#include "reliability/VORNBitmap.h"
#include "time/VORNNtpTime.h"
#include "wire/ExitCode.h"

#include <cstdint>
#include <optional>
#include <string>

/// What filecast puts on the wire: one header and one of four bodies, as CDR items in big-endian
/// order. Readers trust nothing: one that returns true has checked every size and index.

inline constexpr int DATAGRAM_CAPACITY = 1472;  ///< what an Ethernet frame takes without fragments
inline constexpr int SAMPLE_CAPACITY = 1408;    ///< file bytes in one datagram
inline constexpr int NAME_CAPACITY = 255;       ///< bytes of a file name
inline constexpr std::uint64_t LARGEST_FILE = std::uint64_t{1} << 40;

enum class Kind : std::uint32_t {
  HEARTBEAT = 1,  ///< sender: what the file is, and up to which sample it was sent
  SAMPLE = 2,     ///< sender: a piece of the file
  WINDOW = 3,     ///< receiver: what has arrived, so what is missing
  END = 4,        ///< sender: nothing more will come
};

struct Header {
  std::uint32_t session = 0;  ///< drawn by the sender; never 0 on the wire
  Kind kind = Kind::HEARTBEAT;
  VORNNtpTime time;       ///< the sender's clock; a window repeats that of its heartbeat
  SequenceNumber number;  ///< of a sample: its own; of a window: the first sample missing; else the
                          ///< last sample that was sent
};

/// The file, as every heartbeat tells it.
struct FileDescription {
  std::uint64_t size = 0;
  std::uint32_t sampleSize = 0;  ///< bytes of every sample but the last
  std::string name;              ///< of the file alone, without a folder

  /// Samples are numbered from 1 to this.
  std::int64_t SampleCount() const;
  /// Bytes of sample `number`, which must be one of them.
  int SampleLength(std::int64_t number) const;
  std::uint64_t SampleOffset(std::int64_t number) const;
  /// Bytes of all samples before `number`, which is at most one past the last.
  std::uint64_t BytesBefore(std::int64_t number) const;
};

struct Heartbeat {
  std::uint32_t count = 0;  ///< heartbeats so far, this one included
  int answerPort = 0;       ///< windows go to this port at the heartbeat's source
  FileDescription file;
  /// Of all bytes of the file. It is computed while they are sent, so there is none before the last
  /// sample was sent.
  std::optional<std::uint64_t> checksum;
};

/// How far a receiver is with the file.
enum class TransferState : std::uint32_t { RECEIVING = 0, COMPLETE = 1, FAILED = 2 };

/// What a window says before its bitmap.
struct WindowHead {
  std::uint32_t receiver = 0;   ///< drawn by the receiver
  std::uint32_t heartbeat = 0;  ///< count of the heartbeat that it answers
  TransferState state = TransferState::RECEIVING;
  ExitCode reason = ExitCode::OK;  ///< why it failed; `OK` while it has not
  std::uint32_t arrived = 0;       ///< sample datagrams that came, each copy of one; wraps
  std::uint32_t room = 1;          ///< sample datagrams that its receive buffer takes; never 0
};

/// Writers return whether everything fitted. The stream holds `DATAGRAM_CAPACITY` bytes or more.
bool HeartbeatWrite(VORNCDRStream* stream, const Header& header, const Heartbeat& heartbeat);
bool SampleWrite(VORNCDRStream* stream, const Header& header, const char* bytes, int length);
bool WindowWrite(VORNCDRStream* stream, const Header& header, const WindowHead& head,
                 const Bitmap& arrived);
/// `reason` is `OK` when the sender has said all, else why it stops before that.
bool EndWrite(VORNCDRStream* stream, const Header& header, ExitCode reason);

/// Readers return whether the datagram is one of ours and of this kind, whole and consistent. Read
/// the header first: it says which reader comes next.
bool HeaderRead(VORNCDRStream* stream, Header* header);
bool HeartbeatRead(VORNCDRStream* stream, const Header& header, Heartbeat* heartbeat);
/// Stores where the sample's bytes lie in the stream's buffer, and how many.
bool SampleRead(VORNCDRStream* stream, const char** bytes, int* length);
bool WindowRead(VORNCDRStream* stream, const Header& header, WindowHead* head, Bitmap* arrived);
bool EndRead(VORNCDRStream* stream, ExitCode* reason);

/// Whether a file in a folder of ours may have a name from the wire: no path, no leading dot, and
/// no control characters, which a terminal would obey.
bool FileNameIsSafe(const std::string& name);

#endif
