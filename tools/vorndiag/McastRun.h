#ifndef VORNDIAG_MCAST_RUN_H
#define VORNDIAG_MCAST_RUN_H

#include "vorndiag/Commands.h"
#include "vorndiag/McastCause.h"
#include "vorndiag/McastMatrix.h"

/// The three things to do with a group. Each returns what became of it, for `McastShow.h`.

struct McastReport {
  McastLook look;
  McastMatrix matrix;
  int sent = 0;                    ///< datagrams from each interface
  std::vector<std::string> wrong;  ///< what should have been and was not
  std::vector<McastCause> causes;  ///< why, as far as this host can tell
  std::string failure;             ///< why nothing could be tried; empty if it could
};

/// Sends `options.count` datagrams from each interface that is used.
McastReport McastSendRun(const McastOptions& options);
/// Receives, and answers to senders that ask for it, until the time is over or a signal comes.
McastReport McastRecvRun(const McastOptions& options);
/// Sends, and hears what comes of it on this host and on those that run `mcast recv`.
McastReport McastCheckRun(const McastOptions& options);

#endif
