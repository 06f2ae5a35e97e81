#ifndef FILECAST_PROGRAM_RECEIVE_COMMAND_H
#define FILECAST_PROGRAM_RECEIVE_COMMAND_H

#include "program/EventLoop.h"
#include "program/Options.h"
#include "program/Progress.h"
#include "receiver/IncomingFile.h"
#include "wire/Endpoints.h"
#include "wire/Inbox.h"

#include <memory>
#include <vector>

/// `filecast recv`: reads datagrams, keeps a file for each sender and answers heartbeats.
class ReceiveCommand {
public:
  ReceiveCommand(const Options& options, PeerList* peers);
  ~ReceiveCommand();
  ReceiveCommand(const ReceiveCommand&) = delete;
  ReceiveCommand& operator=(const ReceiveCommand&) = delete;

  /// Receives as many files as the options ask for. Throws the first `Failure` of one.
  ExitCode Run();

private:
  struct Slot {
    std::unique_ptr<IncomingFile> file;
    bool isTold = false;  ///< the user knows how it ended
    Header heard;         ///< of the last heartbeat, and its count
    std::uint32_t heartbeat = 0;
    AddressPort answerTo;
  };

  Inbox::Verdict DatagramHandle(VORNCDRStream* stream, const Header& header,
                                const AddressPort& source);
  Inbox::Verdict HeartbeatHandle(VORNCDRStream* stream, const Header& header,
                                 const AddressPort& source);
  void SendersWatch(const VORNNtpTime& now);

  Slot* SlotFind(std::uint32_t session);
  Slot* SlotMake(const Header& header, const FileDescription& file, unsigned int sender);
  void WindowSend(const Slot& slot);
  void InterruptSay();
  void FilesCheck();
  void FileTell(const IncomingFile& incoming);
  void CountsSay();

  // Bounds the memory: each file has a ring of 0.7 MB. Those that are over make room.
  static constexpr std::size_t FILE_CAPACITY = 8;

  Options _options;
  std::uint32_t _id;
  Progress _progress;
  int _folder = -1;
  EventLoop _loop;
  ReceiveEndpoints _endpoints;
  LossGenerator _loss;
  Inbox _inbox;
  std::vector<Slot> _slots;
  Heartbeat _heartbeat;  ///< the one last received; kept for the memory of its name
  Bitmap _window{0, SequenceNumber(), 0};
  VORNNtpTime _now;  ///< when the loop last called
  VORNNtpTime _begin;
  int _filesOver = 0;
  std::optional<Failure> _failure;  ///< the first one
  char _buffer[DATAGRAM_CAPACITY];
};

#endif
