#ifndef VORNDIAG_QUEUE_TEXT_H
#define VORNDIAG_QUEUE_TEXT_H

#include "vorndiag/QueueActions.h"
#include "vorndiag/QueueWatch.h"

#include <ctime>
#include <string>

#include <sys/types.h>

/// Queues and what was done to them, as text on standard output.

/// All about one queue, a line for each verdict at the end.
void QueuePrint(const QueueWatch& watch, const Verdict& verdict);
/// The heading of the rows.
inline constexpr const char* QUEUE_ROW_HEADING =
    "      queue  key              bytes  attached  messages        free\n";
/// One line.
void QueueRowPrint(const QueueWatch& watch, const Verdict& verdict);
/// A line for each step, or the refusal.
void ActionPrint(const ActionReport& report);

/// Local time as 2026-11-24 21:25:37; "never" for 0.
std::string TimeText(std::time_t time);
/// The user's name, or the number where there is none.
std::string UserText(uid_t user);

#endif
