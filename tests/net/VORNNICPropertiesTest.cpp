#include "net/VORNNICProperties.h"
#include "support/ScriptedInterfaces.h"

#include <utility>

namespace {

using InterfaceList = Scripted;
using Nics = std::vector<std::pair<unsigned int, unsigned int>>;

// The table that is made; the socket for it is gone afterwards.
Nics Acquired() {
  VORNNICProperties table[VORN_NIC_CAPACITY];
  int count = 77;
  EXPECT_EQ(NicInterfaceGet(table, &count), 1);
  EXPECT_EQ(Script().openSockets, 0);
  Nics nics;
  for (int i = 0; i < count; ++i)
    nics.emplace_back(table[i].address, table[i].flags);
  return nics;
}

const char* const LISTED = "VORN: Acquired network interfaces:\n";

TEST_F(InterfaceList, TakesAddressesFromTheListAndFlagsFromTheReply) {
  MessagesExpect(
      {{1, LISTED},
       {1, "VORN: Interface: 127.0.0.1 (LOOPBACK,UP)\n"
           "VORN: Interface: 10.0.0.4 (LOOPBACK,MULTICAST,)\n"
           "VORN: Interface: 10.0.0.5 ()\n"
           "VORN: Interface: 10.0.0.3 (MULTICAST,BROADCAST,UP)\n"}},
      [] {
        InterfacesScript({{0x7F000001, LOOP | UP | IFF_RUNNING},
                          {0x0A000001, UP, AF_INET6},
                          {0x0A000004, LOOP | CAST},
                          {0x0A000002, UP, AF_INET, false},
                          {0, UP | CAST},
                          {0x0A000005, 0},
                          {0x0A000003, CAST | UP | BROAD}});
        EXPECT_EQ(Acquired(),
                  (Nics{{0x7F000001, 0x12}, {0x0A000004, 6}, {0x0A000005, 0}, {0x0A000003, 0x15}}));
      });
  InterfacesScript(std::vector<ScriptedInterface>(40, {1, 0}));  // more than there is room for
  EXPECT_EQ(Acquired(), Nics(32, {1, 0}));
}

TEST_F(InterfaceList, StandsInForWhatCannotBeRead) {
  const char* assumed = "VORN: Unable to acquire interface information.\n"
                        "VORN: Default interface assumed.\n";
  for (const int nameResult : {0, -1}) {
    const Message unknown{1, nameResult == 0 ? "VornStringToAddress:: host  not found.\n" : ""};
    const auto expect = [&](std::vector<Message> messages, const std::function<void()>& situation) {
      messages.push_back(unknown);
      MessagesExpect(messages, [&] {
        System().gethostname = [&](char* name) { return *name = '\0', nameResult; };
        System().gethostbyname = [](const char*) { return static_cast<hostent*>(nullptr); };
        situation();
        EXPECT_EQ(Acquired(), (Nics{{0, 0x15}, {0x7F000001, 0x17}}));
      });
    };
    expect({{0, "VORN: failed to get interfaces: ioctl returned -3, errno=25\n"}, {0, assumed}},
           [] { System().ioctl = [](unsigned long, void*) { return errno = 25, -3; }; });
    expect({{1, LISTED}, {0, assumed}}, [] { InterfacesScript({{0, UP}}); });
    expect({{0, "VORN: Unable to allocate object dgram\n"}},
           [] { Script().dgramInitializeFails = true; });
  }
}

TEST_F(InterfaceList, RefusesANullCountFirstInWordsReadWhenPrinted) {
  const std::string null = "VORN: NULL parameter ", passed = " of NicInterfaceGet passed\n";
  MessagesExpect(
      {{0, null + "argc" + passed + null + "argv" + passed + "X<argc of NicInterfaceGet>"}}, [] {
        VORNNICProperties nic{};
        EXPECT_EQ(NicInterfaceGet(nullptr, nullptr), 0);
        EXPECT_EQ(NicInterfaceGet(nullptr, &VORN_NIC_COUNT), 0);
        EXPECT_EQ(NicInterfaceUNIXVxWorksGet(&nic, nullptr) + NicDefaultGet(&nic, nullptr), 0);
        const char* const prefix = std::exchange(WarnPreUtilsInit, "X");
        const char* const format = std::exchange(WarnFrmUtilsNULLParam, "%s<%s>");
        EXPECT_EQ(NicInterfaceGet(&nic, nullptr), 0);
        WarnPreUtilsInit = prefix;
        WarnFrmUtilsNULLParam = format;
      });
}

}  // namespace
