#ifndef FILECAST_SENDER_SEND_SCHEDULE_H
#define FILECAST_SENDER_SEND_SCHEDULE_H

#include "wire/Addresses.h"
#include "wire/Datagram.h"

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
/// A window answers a certain heartbeat. A sample that was sent after that heartbeat can be on its
/// way still, so that window does not cause a repair of it. In this way several windows that miss
/// the same sample cause one repair.
class SendSchedule {
public:
  /// A receiver, as far as its windows tell.
  struct Peer {
    std::uint32_t id;   ///< drawn by itself
    AddressPort place;  ///< where its windows come from
    TransferState state;
    ExitCode reason;    ///< why it failed
    std::int64_t lead;  ///< first sample that it misses
    VORNNtpTime lastHeard;
    bool lost;
  };

  explicit SendSchedule(const FileDescription& file);

  const FileDescription& FileGet() const { return _file; }
  const std::vector<Peer>& PeersGet() const { return _peers; }
  std::int64_t HighestGet() const { return _highest; }
  std::uint64_t RepairsGet() const { return _repairs; }

  /// The heartbeat to be sent now, as far as the schedule knows it: without port and checksum.
  Heartbeat HeartbeatNext();

  /// Learns from a window that came from `source`. Returns false for one that cannot
  /// be true, and when there are too many receivers.
  bool WindowApply(const WindowHead& head, const Bitmap& arrived, const AddressPort& source,
                   const VORNNtpTime& now);

  /// The sample to be sent now, or none while nothing may be sent.
  std::optional<std::int64_t> SampleNext();

  /// Marks those as lost that were not heard for longer than `patience`. One that is heard again is
  /// not lost any more.
  void LostPeersFind(const VORNNtpTime& now, const VORNNtpTime& patience);

  int CountIn(TransferState state) const;
  int LostCount() const;

  static constexpr std::size_t PEER_CAPACITY = 64;

private:
  Peer* PeerFind(std::uint32_t id, const AddressPort& place);
  void MissingQueue(std::uint32_t heartbeat, const Bitmap& arrived);
  std::int64_t LimitGet() const;

  FileDescription _file;
  std::uint32_t _heartbeats = 0;
  std::int64_t _highest = 0;  ///< last sample sent for the first time
  std::uint64_t _repairs = 0;
  std::vector<std::uint32_t> _sentAfter;  ///< per sample, heartbeats before it was last sent
  std::vector<bool> _repairIsQueued;      ///< per sample
  std::deque<std::int64_t> _repairQueue;
  std::vector<Peer> _peers;
};

#endif
