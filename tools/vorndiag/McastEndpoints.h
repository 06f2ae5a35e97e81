#ifndef VORNDIAG_MCAST_ENDPOINTS_H
#define VORNDIAG_MCAST_ENDPOINTS_H

#include "net/VORNDGramMulticast.h"
#include "vorndiag/McastProbe.h"

#include <optional>

/// The two ends of a group, made of the library's own endpoints, so that what is tried is what
/// programs do. Both need the interface table.

/// A datagram that came, and how.
struct McastArrival {
  McastProbe probe;
  unsigned int source = 0;  ///< address from which it was sent
  int interfaceIndex = 0;   ///< the interface on which it came; 0: not known
  int timeToLive = -1;      ///< what was left; -1: not known
};

/// Receives probes of a group on every interface, or answers to a port of its own.
class McastReceiver {
public:
  /// Joins `group` on `port`. Where that fails, `portError` and `IsJoined` say so.
  McastReceiver(unsigned int group, int port);
  /// For answers: any port.
  McastReceiver();

  /// The next sound datagram within `seconds`, or none.
  std::optional<McastArrival> Next(double seconds);

  bool IsJoined() const { return _isJoined; }
  int PortErrorGet() const { return _portError; }
  /// The port that is bound; 0: none.
  int PortGet() const { return _port; }

private:
  void ArrivalsTell();

  VORNDGram _dgram;
  int _port = 0;
  int _portError = 0;
  bool _isJoined = false;
};

/// Sends probes from every interface that is used for groups.
class McastSender {
public:
  McastSender(unsigned int group, int port, int timeToLive, bool loopback);

  /// Sends from all; returns 0, or `errno` of the first that failed.
  int Send(const McastProbe& probe);
  /// Sends an answer to one address.
  void Answer(const McastProbe& probe, unsigned int address, int port);

private:
  bool BytesSend(const McastProbe& probe, unsigned int address, int port);

  VORNMulticastProperties _properties;
  unsigned int _group;
  int _port;
  VORNDGramMulticast _dgram;
};

#endif
