#ifndef SUPPORT_NAMESPACE_H
#define SUPPORT_NAMESPACE_H

#include "net/VORNDGramMulticast.h"

#include <functional>
#include <set>
#include <string>

/// Tests that send multicast, or look at the system's interfaces, do it on a thread in network
/// namespaces of their own: nothing leaves the machine.

constexpr int NAMESPACE_PORT = 7460;
constexpr unsigned int FIRST_GROUP = 0xEF010203, SECOND_GROUP = 0xEF010204;

/// Runs `body` on a thread in a network namespace of its own. Skips the test, with the reason, when
/// this process may not make one: call it last.
void NamespaceRun(const std::function<void()>& body);

/// Makes pairs keep0-keep1 and drop0-drop1 between two namespaces of our own. `peer` joins on the
/// far ends in the first; the thread stays in the second, with the near ends.
void NamespacesMake(VORNDGram& peer);

/// Runs a shell command that must succeed.
void Run(const std::string& command);

/// Sends `text` to a group, which must succeed.
void Send(VORNDGramClass& endpoint, std::string text, unsigned int group = FIRST_GROUP);

/// The next `count` datagrams with where they came from.
std::multiset<std::string> Received(VORNDGram& endpoint, int count);

/// Those of the interfaces "keep0", "drop0" and "lo" on which the system lists a group (dotted).
std::set<std::string> JoinedTo(const std::string& group);

#endif
