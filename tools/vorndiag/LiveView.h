#ifndef VORNDIAG_LIVE_VIEW_H
#define VORNDIAG_LIVE_VIEW_H

#include "vorndiag/Commands.h"

#include <functional>
#include <set>

/// Shows queues again and again, a line for each. `idsGet` says each time which. Returns after as
/// many prints as the options say, with `EXIT_TROUBLE` if the last one showed something wrong.
ExitCode LiveViewRun(const LiveOptions& options, Format format,
                     const std::function<std::set<int>()>& idsGet);

#endif
