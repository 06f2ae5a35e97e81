#include "Clause.h"
#include "LayerObjects.h"

namespace {

constexpr unsigned int ADDRESS = 0x7F000203;
constexpr int PORT = 0x1234;

bool PortIsTold() {
  KELNetioAddr* address = AddressNew(ADDRESS, PORT);
  return address->portGet(address) == PORT;
}

bool AddressIsTold() {
  KELNetioAddr* address = AddressNew(ADDRESS, PORT);
  return address->addressGet(address) == ADDRESS;
}

bool AddressesAreIndependent() {
  KELNetioAddr* first = AddressNew(ADDRESS, PORT);
  KELNetioAddr* second = AddressNew(ADDRESS + 1, PORT);
  ClauseRequire("its own address", first->addressGet(first) == ADDRESS);
  ClauseRequire("another object's address", first->addressGet(second) == ADDRESS + 1);
  return true;
}

}  // namespace

Clauses AddressClauses() {
  return {
      {"KELNetioAddr::portGet", "is the first field, and tells the port in host byte order",
       PortIsTold},
      {"KELNetioAddr::addressGet",
       "is the second field, and tells the IPv4 address in host byte order", AddressIsTold},
      {"KELNetioAddr::addressGet", "answers for the object that it is given",
       AddressesAreIndependent},
  };
}
