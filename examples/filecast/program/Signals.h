#ifndef FILECAST_PROGRAM_SIGNALS_H
#define FILECAST_PROGRAM_SIGNALS_H

/// From now on, SIGINT, SIGTERM and SIGHUP are noted and do not end the program, so that it can
/// remove partial files first. Called once, at the start.
void SignalsCatch();
/// Whether a signal asked the program to end.
bool IsInterrupted();

#endif
