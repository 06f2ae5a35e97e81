#ifndef BENCH_TARGETS_H
#define BENCH_TARGETS_H

#include "support/Runner.h"

/// The targets, one file each. A target runs in a process of its own, and may change its
/// namespaces.
void QueueBench(Runner& runner);
void DatagramBench(Runner& runner);
void ClockBench(Runner& runner);
void EventsBench(Runner& runner);
void NumbersBench(Runner& runner);
void BitmapBench(Runner& runner);
void HostsBench(Runner& runner);
void TextsBench(Runner& runner);
void FilecastBench(Runner& runner);

#endif
