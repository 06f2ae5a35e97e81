#ifndef EXAMPLES_QUEUE_STOP_SIGNALS_H
#define EXAMPLES_QUEUE_STOP_SIGNALS_H

#include <pthread.h>

/// How both programs end: signals are waited for and never handled, so none comes at a bad moment.
/// The logger's event loop waits for them with a descriptor. The sensor's work is done by a second
/// thread, while its main thread waits for a signal and then ends the work.

/// From now on Ctrl-C, SIGTERM and SIGHUP only end a `StopAwait` or are read from a descriptor, and
/// a closed output pipe is an error of the output. Call it before the first thread is started:
/// threads inherit it.
void StopSignalsBlock();

/// A descriptor that is readable when one of these signals has come; -1 if there is none to have.
int StopDescriptorNew();

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
