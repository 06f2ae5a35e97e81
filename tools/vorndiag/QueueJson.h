#ifndef VORNDIAG_QUEUE_JSON_H
#define VORNDIAG_QUEUE_JSON_H

#include "vorndiag/Json.h"
#include "vorndiag/QueueActions.h"
#include "vorndiag/QueueWatch.h"

/// Queues and what was done to them, as JSON. The names are an interface: programs read them.

/// The fields of one queue, into an object that the caller has begun.
void QueueFieldsWrite(const QueueWatch& watch, const Verdict& verdict, JsonWriter* json);
/// The fields of an action.
void ActionFieldsWrite(const ActionReport& report, JsonWriter* json);
/// `process` as an object; null for none.
void ProcessWrite(const char* name, const Process* process, JsonWriter* json);

#endif
