#ifndef FILECAST_RECEIVER_H
#define FILECAST_RECEIVER_H

#include "Endpoints.h"
#include "EventLoop.h"
#include "Inbox.h"
#include "Progress.h"
#include "ReceiverSession.h"

#include <memory>
#include <vector>

/// `filecast recv`: takes datagrams in, keeps a session for each sender and answers heartbeats.
class Receiver {
public:
  Receiver(const Options& options, Peers* peers);
  ~Receiver();
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  /// Receives as many files as the options ask for. Throws the first `Failure` of a session.
  ExitCode Run();

private:
  struct Slot {
    std::unique_ptr<ReceiverSession> session;
    bool isTold = false;  ///< the user knows how it ended
  };

  Inbox::Verdict DatagramTake(VORNCDRStream* stream, const Header& header,
                              const AddressPort& source);
  Inbox::Verdict HeartbeatTake(VORNCDRStream* stream, const Header& header,
                               const AddressPort& source);
  void WatchTake(const VORNNtpTime& now);

  ReceiverSession* SessionFind(std::uint32_t id);
  ReceiverSession* SessionMake(const Header& header, const FileDescription& file,
                               unsigned int sender);
  void WindowSend(const Header& header, std::uint32_t heartbeat, const AddressPort& to,
                  const ReceiverSession& session);
  void SessionsCheck();
  void SessionTell(const ReceiverSession& session);
  void CountsSay();

  // Bounds the memory, each session has a ring of 0.7 MB. Sessions that are over make room.
  static constexpr std::size_t SESSION_CAPACITY = 8;

  Options _options;
  std::uint32_t _id;
  Progress _progress;
  int _folder = -1;
  EventLoop _loop;
  ReceiverEndpoints _endpoints;
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
