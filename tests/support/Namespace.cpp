#include "support/Namespace.h"

#include "net/miscIPUtils.h"
#include "platform/VornCDRStream.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

void NamespaceRun(const std::function<void()>& body) {
  int refusal = 0;
  std::thread([&] {
    refusal = unshare(CLONE_NEWNET) == 0 ? 0 : errno;
    if (refusal == 0)
      body();
  }).join();
  if (refusal != 0)
    GTEST_SKIP() << "no network namespace of our own: " << std::strerror(refusal);
}

void Run(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

void Send(VORNDGramClass& endpoint, std::string text, unsigned int group) {
  const int length = static_cast<int>(text.size());
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, text.data(), length, length};
  KELNetioAddr destination;
  KelNetioAddrInitialize(&destination, group, NAMESPACE_PORT);
  EXPECT_EQ(endpoint.SendTo(&destination, &stream), 1);
}

std::multiset<std::string> Received(VORNDGram& endpoint, int count) {
  std::multiset<std::string> received;
  while (count-- > 0) {
    KELNtpTime wait{2, 0};
    KELNetioAddr source;
    char text[16] = "", address[VORN_ADDRESS_TEXT_SIZE];
    if (endpoint.HasDataWithSleep(&wait) > 0)
      endpoint.receiveFrom(&endpoint, &source, text, sizeof text - 1);
    received.insert(std::string(text) + " from " + VornAddressToString(source.address, address));
  }
  return received;
}

std::set<std::string> JoinedTo(const std::string& group) {
  std::set<std::string> interfaces;
  for (const char* interface : {"keep0", "drop0", "lo"})
    if (std::system(("ip maddr show dev " + (interface + (" | grep -qw " + group))).c_str()) == 0)
      interfaces.insert(interface);
  return interfaces;
}

void NamespacesMake(VORNDGram& peer) {
  Run("ip link add keep1 type veth peer name keep0; ip link add drop1 type veth peer name drop0;"
      "ip addr add 10.77.1.2/24 dev keep1 && ip addr add 10.77.2.2/24 dev drop1 &&"
      "ip link set keep1 up && ip link set drop1 up");
  ASSERT_EQ(VORNDGramClass::NICInitialize(), 1);
  ASSERT_EQ(peer.RecvMulticastAdd(FIRST_GROUP), 1);
  ASSERT_EQ(VORNDGramClass::NICDestroy(), 1);
  const int far = open("/proc/thread-self/ns/net", O_RDONLY);
  ASSERT_EQ(unshare(CLONE_NEWNET), 0);
  const std::string near = " netns " + std::to_string(gettid());
  Run("nsenter --net=/proc/self/fd/" + std::to_string(far) + " sh -c 'ip link set keep0" + near +
      " && ip link set drop0" + near + "'");
  close(far);
  Run("ip addr add 10.77.1.1/24 dev keep0 && ip addr add 10.77.2.1/24 dev drop0 &&"
      "ip link set keep0 up && ip link set drop0 up");
}
