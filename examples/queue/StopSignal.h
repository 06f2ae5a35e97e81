#ifndef EXAMPLES_QUEUE_STOP_SIGNAL_H
#define EXAMPLES_QUEUE_STOP_SIGNAL_H

/// From now on Ctrl-C, SIGTERM, SIGHUP and a closed output pipe do not kill: they make
/// `StopRequested` true, and end every wait of the calling process that a signal can end.
void StopSignalsCatch();

bool StopRequested();

#endif
