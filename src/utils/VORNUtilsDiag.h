#ifndef UTILS_VORN_UTILS_DIAG_H
#define UTILS_VORN_UTILS_DIAG_H

#include "platform/VornExport.h"

struct VORNCDRStream;

/// Process-wide diagnostics, read without a lock at the moment they are needed, on the thread that
/// needs them. Verbosity and listener are read atomically: a change by another thread is seen at
/// one of the following reads. The texts are plain pointers: set them before other threads use the
/// library.

/// How much the library prints. Every diagnostic line has one of four tests: level >= 0 for
/// failures and refusals, > 0 for configuration and recoverable trouble, > 1 for failures on shared
/// memory, > 2 for traces. A negative level silences everything.
extern VORN_API int VORNUtilsVerbosity;

/// Switches for the layers above; this library does not read them.
extern VORN_API int VORN_UTILS_DEBUG;
extern VORN_API int DEBUG_ENABLE;

/// Stores `level` as it is, negative values included.
VORN_API void VornUtilsVerbositySet(int level);

/// Texts shared by many messages. They are read when a line is printed: pointing one at another
/// text (with the same conversions) changes the wording everywhere. The library never frees them.
extern VORN_API const char* WarnPreUtilsInit;       ///< prefix
extern VORN_API const char* WarnFrmUtilsNULLParam;  ///< prefix, parameter
extern VORN_API const char* WarnFrmUtilsNULLAlloc;  ///< prefix, kind of object
extern VORN_API const char* WarnMutexNULLAlloc;     ///< kind of object
extern VORN_API const char* WarnSharedMemory;
extern VORN_API const char* WarnSharedMemoryOpen;

/// Hears of every datagram just before it is sent.
class VORN_API VORNDiagNetworkListenerClass {
public:
  virtual ~VORNDiagNetworkListenerClass();

  /// Called on the sending thread with the stream whose bytes, from its start to its position, go
  /// out next; once per datagram, so once per interface for a multicast. The stream must be left as
  /// it is; it is null when the sender gave none.
  virtual void SendNotify(VORNCDRStream* stream) = 0;
};

/// The installed listener, or null. The library never sets or deletes it: its owner clears it
/// before the listener goes away, while nobody sends.
extern VORN_API VORNDiagNetworkListenerClass* VORN_DIAG_NETWORK_LISTENER;

#endif
