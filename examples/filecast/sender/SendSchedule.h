#ifndef FILECAST_SENDER_SEND_SCHEDULE_H
#define FILECAST_SENDER_SEND_SCHEDULE_H

#include "sender/SendRate.h"
#include "wire/Addresses.h"
#include "wire/Datagram.h"

#include <array>
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
/// A sample that waits in a receive buffer must find room there. So no more samples are on their
/// way than fit into the smallest one: on their way are those that were sent after the last
/// heartbeat that the receiver has answered.
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
    std::uint32_t room = 1;          ///< samples that its receive buffer takes
    std::uint32_t answered = 0;      ///< the last heartbeat that it answered
    std::uint32_t arrived = 0;       ///< samples that had come to it by then
    std::uint32_t roundFrom = 0;     ///< the heartbeat with which its round begins; 0: none yet
    std::uint32_t roundArrived = 0;  ///< samples that had come to it by then

    /// Whether it needs data and answers.
    bool IsServed() const { return !lost && state == TransferState::RECEIVING; }
  };

  explicit SendSchedule(const FileDescription& file);

  const FileDescription& FileGet() const { return _file; }
  const std::vector<Peer>& PeersGet() const { return _peers; }
  std::int64_t HighestGet() const { return _highest; }
  std::uint64_t RepairsGet() const { return _repairs; }
  std::uint64_t SentGet() const { return _sent; }

  /// The heartbeat to be sent now, as far as the schedule knows it: without port and checksum.
  Heartbeat HeartbeatNext(const VORNNtpTime& now);

  /// Learns from a window that came from `source`. Returns false for one that cannot
  /// be true, and when there are too many receivers.
  bool WindowApply(const WindowHead& head, const Bitmap& arrived, const AddressPort& source,
                   const VORNNtpTime& now);

  /// The sample to be sent now, or none while nothing may be sent.
  std::optional<std::int64_t> SampleNext();

  /// A round begins with the next heartbeat: what is on its way belongs to the one before.
  void RoundBegin() { _roundFrom = _heartbeats + 1; }
  /// The round so far, at the receiver that lost most. None while no receiver tells of a
  /// sample.
  std::optional<Round> RoundGet() const;

  /// Marks those as lost that were not heard for longer than `patience`. One that is heard again is
  /// not lost any more.
  void LostPeersFind(const VORNNtpTime& now, const VORNNtpTime& patience);

  int CountIn(TransferState state) const;
  int LostCount() const;

  static constexpr std::size_t PEER_CAPACITY = 64;

private:
  /// What had been sent when a heartbeat was.
  struct Mark {
    std::uint64_t sent = 0;
    VORNNtpTime time;
  };

  Peer* PeerFind(std::uint32_t id, const AddressPort& place);
  void MissingQueue(std::uint32_t heartbeat, const Bitmap& arrived);
  void ArrivalsLearn(Peer* peer, const WindowHead& head) const;
  bool IsMarked(std::uint32_t heartbeat) const { return _heartbeats - heartbeat < MARK_CAPACITY; }
  const Mark& MarkGet(std::uint32_t heartbeat) const { return _marks[heartbeat % MARK_CAPACITY]; }
  bool RoomIsFull() const;
  std::int64_t LimitGet() const;

  static constexpr std::uint32_t MARK_CAPACITY = 1024;

  FileDescription _file;
  std::uint32_t _heartbeats = 0;
  std::array<Mark, MARK_CAPACITY> _marks;  ///< of the last heartbeats
  std::uint32_t _roundFrom = 1;            ///< the heartbeat with which the round begins
  std::uint64_t _sent = 0;                 ///< samples, repairs included
  std::int64_t _highest = 0;               ///< last sample sent for the first time
  std::uint64_t _repairs = 0;
  std::vector<std::uint32_t> _sentAfter;  ///< per sample, heartbeats before it was last sent
  std::vector<bool> _repairIsQueued;      ///< per sample
  std::deque<std::int64_t> _repairQueue;
  std::vector<Peer> _peers;
};

#endif
