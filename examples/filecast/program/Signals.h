#ifndef FILECAST_PROGRAM_SIGNALS_H
#define FILECAST_PROGRAM_SIGNALS_H

/// Lets the program end in order when it is interrupted, so that no partial file stays behind.
/// Called once, first of all.
void SignalsCatch();
/// Whether a signal asked the program to end.
bool IsInterrupted();

#endif
