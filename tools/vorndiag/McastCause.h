#ifndef VORNDIAG_MCAST_CAUSE_H
#define VORNDIAG_MCAST_CAUSE_H

#include "vorndiag/McastLook.h"

/// Why datagrams to a group are not sent or not heard. Pure functions.

enum class McastCauseKind {
  INTERFACE_DOWN,
  NO_CARRIER,
  NO_MULTICAST,
  NO_ADDRESS,
  NO_ROUTE,
  REVERSE_PATH,
  MEMBERSHIP_LIMIT,
  JOIN_FAILED,
  PORT_TAKEN,
  LOOPBACK_OFF,
  HOST_LIST,
  SEND_FAILED,
};

struct McastCause {
  McastCauseKind kind;
  std::string interface;  ///< its name; empty where it is not about one
  std::string text;
};

/// All that a look finds, what concerns everything first. An interface that is not used need not
/// matter: whoever asks knows what should have been heard.
std::vector<McastCause> McastCausesGet(const McastLook& look);

/// The stable name of a kind, such as "interface_down".
const char* McastCauseName(McastCauseKind kind);

#endif
