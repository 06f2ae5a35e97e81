#ifndef EXAMPLES_QUEUE_STOP_SIGNALS_H
#define EXAMPLES_QUEUE_STOP_SIGNALS_H

#include <pthread.h>

/// How both programs end. The work is done by a second thread. The main thread only waits for a
/// signal and then ends the work, so no signal comes at a bad moment: there is no handler that has
/// to do with stopping, and no wait that one must cut short.

/// From now on Ctrl-C, SIGTERM and SIGHUP do nothing but end a `StopAwait`, and a closed output
/// pipe is an error of the output. Call it before the first thread is started: threads inherit it.
void StopSignalsBlock();

/// Waits until one of these signals comes, or has come, or a `StopAtEnd` ends.
void StopAwait();

/// Ends the main thread's `StopAwait` when it goes out of scope. The working thread has one, so
/// that the program ends with its work, for whatever reason that ends.
class StopAtEnd {
public:
  StopAtEnd() = default;
  ~StopAtEnd();
  StopAtEnd(const StopAtEnd&) = delete;
  StopAtEnd& operator=(const StopAtEnd&) = delete;
};

/// Ends what `thread` waits for in the kernel at this moment, if anything, with `EINTR`. Call it
/// again until the thread has done what is expected: it may have been just before a wait.
void WaitInterrupt(pthread_t thread);

#endif
