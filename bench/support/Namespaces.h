#ifndef BENCH_SUPPORT_NAMESPACES_H
#define BENCH_SUPPORT_NAMESPACES_H

#include <string>

/// Namespaces of this process: nothing that is made or sent in them can leave them. Each throws
/// `Unavailable` where they may not be made.

/// System V objects and POSIX queues of our own, with room for large messages.
void IpcNamespaceEnter();

/// A network with its own loopback and no other interface.
void NetNamespaceEnter();

/// A second network at the far end of a veth pair. The caller is in the near one, at 10.77.0.1; the
/// far end has the addresses from 10.77.0.2 on. Returns a descriptor of the far one for `setns`.
int FarNetworkMake(int addresses);

/// A memory file system of our own at the place that is returned; it is gone with this process.
std::string MemoryFolderMake();

/// Runs a shell command that must succeed.
void Shell(const std::string& command);

#endif
