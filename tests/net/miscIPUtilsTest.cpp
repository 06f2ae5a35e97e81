#include "net/miscIPUtils.h"
#include "support/Messages.h"

#include <climits>
#include <cstring>

#include <netdb.h>

namespace {

using Addresses = Scripted;

TEST_F(Addresses, AreNamedByNumbersOrHostNames) {
  const auto expect = [](const char* text, unsigned int address, const char* calls,
                         const char* message = "") {
    MessagesExpect({{1, message}}, [&] {
      System().gethostname = [](char* name) {
        std::strcpy(name, "self");
        return 0;
      };
      System().gethostbyname = [](const char* name) {
        static char bytes[] = {10, 11, 12, 13}, *list[] = {bytes, nullptr};
        static hostent host{nullptr, nullptr, AF_INET, 4, list};
        host.h_addrtype = std::strcmp(name, "v6host") == 0 ? AF_INET6 : AF_INET;
        return std::strcmp(name, "nohost") == 0 ? nullptr : &host;
      };
      EXPECT_EQ(VornStringToAddress(text), address) << text;
      EXPECT_EQ(CallsDrain(), calls);
    });
  };
  expect("192.168.1.20", 0xC0A80114, "");
  expect("1.2.3.4xyz", 0x01020304, "");
  expect("1.2.3.300", 0x0102032C, "");
  expect("256.0.0.1", 1, "");
  expect("0.0.0.0", 0, "");
  expect("1.2.3", 0x0A0B0C0D, "gethostbyname 1.2.3");
  expect("nohost", 0, "gethostbyname nohost", "VornStringToAddress:: host nohost not found.\n");
  expect("v6host", 0, "gethostbyname v6host", "VornStringToAddress:: host v6host not found.\n");
  expect(nullptr, 0x0A0B0C0D, "gethostname 63; gethostbyname self");
  System().gethostname = [](char*) { return -1; };
  EXPECT_EQ(VornStringToAddress(nullptr), 0U);
  EXPECT_EQ(CallsDrain(), "gethostname 63");
}

TEST_F(Addresses, HostNameIsAskedForWithAnyLengthThatIsOne) {
  char buffer[8];
  System().gethostname = [](char*) { return 0; };
  EXPECT_EQ(VornHostNameGet(buffer, 0), buffer);
  EXPECT_EQ(VornHostNameGet(buffer, -1), nullptr);
  EXPECT_EQ(VornHostNameGet(nullptr, 8), nullptr);
  EXPECT_EQ(CallsDrain(), "gethostname 0");
}

TEST_F(Addresses, HaveTextsThatFitTheirBuffers) {
  const auto expect = [](unsigned int address, int port, const char* dotted, const char* both) {
    char text[VORN_ADDRESS_TEXT_SIZE], portText[VORN_ADDRESS_PORT_TEXT_SIZE];
    EXPECT_STREQ(VornAddressToStringPrintable(address, text), dotted);
    KELNetioAddr object{[](KELNetioAddr* self) { return self->port ^ 1; },
                        [](KELNetioAddr* self) { return ~self->address; }, ~address, port ^ 1};
    EXPECT_STREQ(KelNetioAddrToString(&object, portText), both);
    EXPECT_EQ(KelNetioAddrToString(&object, nullptr), nullptr);
  };
  expect(0x0A010203, 7400, "10.1.2.3", "10.1.2.3:7400");
  expect(0, 0, "0.0.0.0", "0.0.0.0:0");
  expect(UINT_MAX, INT_MIN, "255.255.255.255", "255.255.255.255:-2147483648");
  EXPECT_EQ(VornAddressToString(1, nullptr), nullptr);
  EXPECT_STREQ(VornAddressToStringPrintable(1, nullptr), "invalid IP address");
  EXPECT_EQ(IsMulticastSupported(), 1);
}

TEST_F(Addresses, WaitInWholeSeconds) {
  EXPECT_EQ(NETOSSelectTimeout({0, 2144}), 0);
  EXPECT_EQ(NETOSSelectTimeout({0, 2145}), 1);
  EXPECT_EQ(NETOSSelectTimeout({2, 0xE6666666}), 2);
  EXPECT_EQ(NETOSSelectTimeout({3, 0xFFFFF796}), 3);
  EXPECT_EQ(NETOSSelectTimeout({3, 0xFFFFF797}), 4);
  EXPECT_EQ(NETOSSelectTimeout({-1, UINT32_MAX}), 0);
  EXPECT_EQ(NETOSSelectTimeout({-2, 0x80000000}), -2);
  EXPECT_EQ(NETOSSelectTimeout({INT32_MAX, UINT32_MAX}), INT32_MAX);
}

}  // namespace
