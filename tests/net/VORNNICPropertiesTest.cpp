#include "net/VORNNICProperties.h"
#include "net/miscIPUtils.h"
#include "support/ScriptedInterfaces.h"

#include <climits>
#include <utility>

namespace {

using InterfaceList = Scripted;
using Class = VORNDGramClass;
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

const Message LISTED{1, "VORN: Acquired network interfaces:\n"};

TEST_F(InterfaceList, TakesAddressesFromTheListAndFlagsFromTheReply) {
  const Message records{1, "VORN: Interface: 127.0.0.1 (LOOPBACK,UP)\n"
                           "VORN: Interface: 10.0.0.4 (LOOPBACK,MULTICAST,)\n"
                           "VORN: Interface: 10.0.0.5 ()\n"
                           "VORN: Interface: 10.0.0.3 (MULTICAST,BROADCAST,UP)\n"};
  const Nics nics{{0x7F000001, 0x12}, {0x0A000004, 6}, {0x0A000005, 0}, {0x0A000003, 0x15}};
  MessagesExpect({LISTED, records}, [&] {
    InterfacesScript({
        {0x7F000001, LOOP | UP | IFF_RUNNING},
        {0x0A000001, UP, AF_INET6},
        {0x0A000004, LOOP | CAST},
        {0x0A000002, UP, AF_INET, false},
        {0, UP | CAST},
        {0x0A000005, IFF_RUNNING | IFF_POINTOPOINT},
        {0x0A000003, CAST | UP | BROAD | IFF_DYNAMIC},
    });
    EXPECT_EQ(Acquired(), nics);
  });
  VORNNICProperties table[VORN_NIC_CAPACITY]{{0, 9}, {0, 9}};
  int count = 0;
  InterfacesScript({{9, 0}, {0, UP}});
  EXPECT_EQ(NicInterfaceGet(table, &count), 1);
  EXPECT_EQ(table[count].address, 0U) << "what a reader finds one record past the count";
  InterfacesScript(std::vector<ScriptedInterface>(40, {1, 0}));  // more than there is room for
  EXPECT_EQ(Acquired(), Nics(32, {1, 0}));
}

TEST_F(InterfaceList, StandsInForWhatCannotBeRead) {
  const Message assumed{0, "VORN: Unable to acquire interface information.\n"
                           "VORN: Default interface assumed.\n"};
  const Message failed{0, "VORN: failed to get interfaces: ioctl returned -3, errno=25\n"};
  for (const int nameResult : {0, -1}) {
    const Message unknown{1, nameResult == 0 ? "VornStringToAddress:: host  not found.\n" : ""};
    const auto expect = [&](const std::vector<Message>& messages, auto situation) {
      MessagesExpect(messages, [&] {
        System().gethostname = [&](char*) { return nameResult; };
        System().gethostbyname = [](const char*) { return static_cast<hostent*>(nullptr); };
        situation();
        EXPECT_EQ(Acquired(), (Nics{{0, 0x15}, {0x7F000001, 0x17}}));
      });
    };
    expect({failed, assumed, unknown}, [] {
      System().ioctl = [](unsigned long, void*) {
        errno = 25;
        return -3;
      };
    });
    expect({LISTED, assumed, unknown}, [] { InterfacesScript({{0, UP}}); });
    expect({{0, "VORN: Unable to allocate object dgram\n"}, unknown},
           [] { System().failingStep = 1; });
  }
}

TEST_F(InterfaceList, RefusesANullCountFirstInWordsReadWhenPrinted) {
  const std::string null = "VORN: NULL parameter ", passed = " of NicInterfaceGet passed\n";
  MessagesExpect(
      {{0, null + "argc" + passed + null + "argv" + passed + "X<argc of NicInterfaceGet>"}}, [] {
        VORNNICProperties nic{};
        EXPECT_EQ(NicInterfaceGet(nullptr, nullptr), 0);
        EXPECT_EQ(NicInterfaceGet(nullptr, &VORN_NIC_COUNT), 0);
        EXPECT_EQ(NicInterfaceUNIXVxWorksGet(&nic, nullptr), 0);
        EXPECT_EQ(NicDefaultGet(&nic, nullptr), 0);
        const char* const prefix = std::exchange(WarnPreUtilsInit, "X");
        const char* const format = std::exchange(WarnFrmUtilsNULLParam, "%s<%s>");
        EXPECT_EQ(NicInterfaceGet(&nic, nullptr), 0);
        WarnPreUtilsInit = prefix;
        WarnFrmUtilsNULLParam = format;
      });
}

TEST_F(InterfaceList, PrintsARecordAtEveryVerbosity) {
  VORNNICProperties nic{NIC_UP | NIC_BROADCAST, 0x0A000001}, none{};
  MessagesExpect({{-1, "X Interface: 10.0.0.1 (BROADCAST,UP)\n Interface: 0.0.0.0 ()\n"}}, [&] {
    NicPropertiesPrint("X", 9, &nic);
    NicPropertiesPrint(nullptr, -9, &none);
    NicPropertiesPrint("X", 0, nullptr);
  });
}

constexpr unsigned int DOWN = 0x0A000001;  // an interface of the first list only

TEST_F(InterfaceList, LivesFromFirstUserToLastAndIsReadOnce) {
  const auto expect = [](const char* name, int (*change)(), int result, int users, int records,
                         int isCapable, unsigned int downMapped) {
    SCOPED_TRACE(name);
    EXPECT_EQ(change(), result);
    EXPECT_EQ(Class::NICReferenceCount, users);
    EXPECT_EQ(VORN_NIC_COUNT, records);
    EXPECT_EQ(Class::NICIsValid(), records > 0 ? 1 : 0);
    EXPECT_EQ(Class::NICIsMulticastSupported(), isCapable);
    EXPECT_EQ(Class::NICHostIPMap(DOWN), downMapped);
    EXPECT_EQ(Class::NICIsThisNodeIP(VORN_LOOPBACK_ADDRESS), 1);
    if (users > 0)
      InterfacesScript({{0x0A000002, UP | CAST}});
  };
  Class::NICReferenceCount = -3;
  InterfacesScript({{VORN_LOOPBACK_ADDRESS, LOOP | UP | CAST}, {DOWN, CAST}});
  System().failingAllocation = 1;
  expect("without memory", Class::NICInitialize, 0, -3, 0, 0, DOWN);
  expect("first user", Class::NICInitialize, 1, 1, 2, 0, VORN_LOOPBACK_ADDRESS);
  expect("second user", Class::NICInitialize, 1, 2, 2, 0, VORN_LOOPBACK_ADDRESS);
  expect("one leaves", Class::NICDestroy, 1, 1, 2, 0, VORN_LOOPBACK_ADDRESS);
  expect("the last leaves", Class::NICDestroy, 1, 0, 0, 0, DOWN);
  expect("a user of the second list", Class::NICInitialize, 1, 1, 1, 1, DOWN);
  expect("leaves", Class::NICDestroy, 1, 0, 0, 0, DOWN);
  EXPECT_EQ(Script().threadLocks, 7);
  EXPECT_EQ(Script().threadUnlocks, 7);
  MessagesExpect({{1, "VORN: can't destroy NIC list, refcount already 0 (too many calls to "
                      "VornAppDestroy?)\n"}},
                 [] {
                   EXPECT_EQ(Class::NICDestroy(), 0);
                   EXPECT_EQ(Script().threadUnlocks, 1);
                 });
  VORNNICProperties record{0, 9};
  VORN_NIC = &record;
  EXPECT_EQ(Class::NICIsValid(), 0) << "a table of no records";
  EXPECT_EQ(Class::NICIsThisNodeIP(9), 0);
  Class::NICReferenceCount = INT_MAX;
  EXPECT_EQ(Class::NICInitialize(), 0) << "a user too many";
  Class::NICReferenceCount = 0;
  VORN_NIC = nullptr;
}

}  // namespace
