#ifndef FILECAST_SENDER_LOGIC_H
#define FILECAST_SENDER_LOGIC_H

#include "Datagram.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

/// What the sender knows and decides, without socket, file or clock: which sample goes out next and
/// which receivers there are.
///
/// New samples run at most one window ahead of the slowest receiver that keeps up. A receiver that
/// lies farther back, because it came late, is served by repairs and holds nobody up. Repairs come
/// before new samples.
///
/// A window answers a certain heartbeat. A sample that was sent after that heartbeat cannot be in
/// it yet, so it is not repaired for that window: no answer causes a second repair of what a first
/// one has already brought on its way.
class SenderLogic {
public:
  struct Receiver {
    std::uint32_t id;
    unsigned int address;  ///< host byte order
    int port;
    ReceiverState state;
    std::int64_t lead;  ///< first sample that it misses
    VORNNtpTime lastHeard;
    bool lost;
  };

  SenderLogic(const FileDescription& file, std::uint32_t session);

  const FileDescription& FileGet() const { return _file; }
  std::uint32_t SessionGet() const { return _session; }
  const std::vector<Receiver>& ReceiversGet() const { return _receivers; }
  std::int64_t HighestGet() const { return _highest; }
  std::uint64_t RepairsGet() const { return _repairs; }

  /// The heartbeat to be sent now.
  Heartbeat HeartbeatNext(int answerPort);

  /// Takes in a window from a receiver at `address` and `port`. Returns false for one that cannot
  /// be true, and when there are too many receivers.
  bool WindowTake(const Window& window, const Bitmap& arrived, unsigned int address, int port,
                  const VORNNtpTime& now);

  /// The sample to be sent now, or none while nothing may be sent.
  std::optional<std::int64_t> SampleNext();

  /// Gives receivers up that were not heard for longer than `patience`. Returns how many.
  int LostReceiversFind(const VORNNtpTime& now, const VORNNtpTime& patience);

  int CountIn(ReceiverState state) const;
  int LostCount() const;
  /// Whether at least `expected` receivers are known and each one is complete, failed or lost.
  bool IsFinished(int expected) const;

  static constexpr std::size_t RECEIVER_CAPACITY = 64;

private:
  Receiver* ReceiverFind(std::uint32_t id, unsigned int address, int port);
  void MissingQueue(std::uint32_t heartbeat, const Bitmap& arrived);
  std::int64_t LimitGet() const;

  FileDescription _file;
  std::uint32_t _session;
  std::uint32_t _heartbeats = 0;
  std::int64_t _highest = 0;  ///< last sample sent for the first time
  std::uint64_t _repairs = 0;
  std::vector<std::uint32_t> _sentAfter;  ///< per sample, heartbeats before it was last sent
  std::vector<bool> _repairIsQueued;      ///< per sample
  std::deque<std::int64_t> _repairQueue;
  std::vector<Receiver> _receivers;
};

#endif
