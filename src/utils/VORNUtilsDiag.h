#ifndef UTILS_VORN_UTILS_DIAG_H
#define UTILS_VORN_UTILS_DIAG_H

#include "platform/VornExport.h"

struct VORNCDRStream;

/// @file
/// Diagnostics of the whole process. Each is read without a lock when it is needed, on the thread
/// that needs it. Verbosity and listener are read atomically: a change by another thread is seen at
/// one of the next reads. The texts are plain pointers: set them before other threads use the
/// library.

/// How much the library prints. Every diagnostic line has one of four tests: level >= 0 for
/// failures and refusals, > 0 for configuration and recoverable trouble, > 1 for failures on shared
/// memory, > 2 for traces. A negative level silences all of them.
extern VORN_API int VORNUtilsVerbosity;

/// A switch for the layers above, 0 at the start; this library does not read it.
extern VORN_API int VORN_UTILS_DEBUG;
/// A switch for the layers above, 1 at the start; this library does not read it.
extern VORN_API int DEBUG_ENABLE;

/// Stores `level` as it is, negative values included.
VORN_API void VornUtilsVerbositySet(int level);

/// Texts that many messages share. They are read when a line is printed: whoever points one at
/// another text (with the same conversions) changes the wording everywhere. The library never frees
/// them.
extern VORN_API const char* WarnPreUtilsInit;       ///< the prefix of many messages
extern VORN_API const char* WarnFrmUtilsNULLParam;  ///< format; takes prefix and parameter
extern VORN_API const char* WarnFrmUtilsNULLAlloc;  ///< format; takes prefix and kind of object
extern VORN_API const char* WarnMutexNULLAlloc;     ///< format; takes the kind of object
extern VORN_API const char* WarnSharedMemory;       ///< a segment cannot be made
extern VORN_API const char* WarnSharedMemoryOpen;   ///< a segment cannot be opened

/// Is told of every datagram just before it is sent. The order of its virtual operations is part of
/// what programs link against: append only.
class VORN_API VORNDiagNetworkListenerClass {
public:
  /// The library never deletes a listener.
  virtual ~VORNDiagNetworkListenerClass();

  /// Called on the sending thread. The bytes of `stream` from its start to its position are sent
  /// next; `stream` is null when the sender gave none, and must be left as it is. A multicast is
  /// one datagram, and so one call, for each interface.
  virtual void SendNotify(VORNCDRStream* stream) = 0;
};

/// The installed listener, or null. The library never sets or deletes it. Its owner sets it to null
/// before it deletes the listener, and at a moment when nobody sends.
extern VORN_API VORNDiagNetworkListenerClass* VORN_DIAG_NETWORK_LISTENER;

#endif
