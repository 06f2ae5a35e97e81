#include "hosts/VORNHostMask.h"

#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"

namespace {

constexpr unsigned int EVERY_ADDRESS_MASK = 0;

const VORNHostMask* EntryGet(const HTNodeClass* node) {
  return node != nullptr ? static_cast<const VORNHostMask*>(node->data) : nullptr;
}

// Returns whether the checker's address is inside one of the table's subnets.
bool SubnetsWalk(HTClass* table, VORNSubnetMatchChecker& checker) {
  return table->ForAllMatches(nullptr, &checker, HTNodeClass::LOCK) == 0;
}

// The walk for the first address also settles whether the list names any subnet.
void InterfacesPrune(HTClass* table) {
  if (VORN_NIC == nullptr)
    return;
  VORNSubnetMatchChecker checker(0);
  for (int i = 0; i < VORN_NIC_COUNT; ++i) {
    VORNNICProperties& nic = VORN_NIC[i];
    if (i > 0 && nic.address == VORN_LOOPBACK_ADDRESS)
      continue;
    checker.ResetHostIp(nic.address);
    const bool inside = SubnetsWalk(table, checker);
    if (i == 0 && checker.SawSubnet() == 0)
      return;
    if (!inside && nic.address != VORN_LOOPBACK_ADDRESS)
      nic.flags &= ~static_cast<std::uint32_t>(NIC_UP);
  }
}

int AddressesChoose(HTClass* table, const unsigned int* addresses, int count,
                    unsigned int* output) {
  VORNSubnetMatchChecker checker(0);
  bool everything = false;
  int chosen = 0;
  for (int i = 0; i < count; ++i) {
    checker.ResetHostIp(addresses[i]);
    const bool inside = everything || SubnetsWalk(table, checker);
    everything = everything || (i == 0 && checker.SawSubnet() == 0);
    if (inside || everything)
      output[chosen++] = addresses[i];
  }
  return chosen;
}

bool ListHolds(const unsigned int* list, int count, unsigned int address) {
  for (int i = 0; i < count; ++i)
    if (list[i] == address)
      return true;
  return false;
}

}  // namespace

VORNHostMask::VORNHostMask(unsigned int hostAddress, unsigned int hostMask)
    : address(hostAddress & hostMask), mask(hostMask) {}

// Defined here because it is a published name.
VORNHostMask::~VORNHostMask() {}

VORNHostMaskMatchChecker::VORNHostMaskMatchChecker(unsigned int ip, int skipLoopbackRule)
    : _ip(ip), _skipLoopbackRule(skipLoopbackRule) {}

VORNHostMaskMatchChecker::~VORNHostMaskMatchChecker() = default;

int VORNHostMaskMatchChecker::LevelEntry(const HTKeyClass* /*key*/, HTClass* /*table*/,
                                         int /*level*/) {
  return 1;
}

int VORNHostMaskMatchChecker::LevelExit(const HTKeyClass* /*key*/, HTClass* /*table*/,
                                        int /*level*/) {
  return 1;
}

int VORNHostMaskMatchChecker::Node(const HTKeyClass* /*key*/, HTNodeClass* node, int /*level*/) {
  const VORNHostMask* entry = EntryGet(node);
  if (entry == nullptr)
    return 1;
  const bool isHost = entry->mask == VORN_HOST_MASK;
  (isHost ? _sawHost : _sawSubnet) = 1;
  if (entry->address == VORN_LOOPBACK_ADDRESS && _skipLoopbackRule == 0 &&
      VORNDGramClass::NICIsThisNodeIP(_ip) != 0)
    return 0;
  if ((_ip & entry->mask) == entry->address)
    (isHost ? _hostMatched : _subnetMatched) = 1;
  return _hostMatched != 0 && _subnetMatched != 0 ? 0 : 1;
}

int VORNHostMaskMatchChecker::IsIpMatch() {
  const bool refused =
      (_sawSubnet != 0 && _subnetMatched == 0) || (_sawHost != 0 && _hostMatched == 0);
  return refused ? 0 : 1;
}

VORNSubnetMatchChecker::VORNSubnetMatchChecker(unsigned int ip) : _ip(ip) {}

VORNSubnetMatchChecker::~VORNSubnetMatchChecker() = default;

int VORNSubnetMatchChecker::LevelEntry(const HTKeyClass* /*key*/, HTClass* /*table*/,
                                       int /*level*/) {
  return 1;
}

int VORNSubnetMatchChecker::LevelExit(const HTKeyClass* /*key*/, HTClass* /*table*/,
                                      int /*level*/) {
  return 1;
}

int VORNSubnetMatchChecker::Node(const HTKeyClass* /*key*/, HTNodeClass* node, int /*level*/) {
  const VORNHostMask* entry = EntryGet(node);
  if (entry == nullptr || entry->mask == EVERY_ADDRESS_MASK || entry->mask == VORN_HOST_MASK)
    return 1;
  _sawSubnet = 1;
  return (_ip & entry->mask) == entry->address ? 0 : 1;
}

void VORNSubnetMatchChecker::ResetHostIp(unsigned int ip) {
  _ip = ip;
  _sawSubnet = 0;
}

int VornHostMaskMatch(HTClass* table, unsigned int address, int skipLoopbackRule) {
  if (table == nullptr)
    return 0;
  VORNHostMaskMatchChecker checker(address, skipLoopbackRule);
  if (table->ForAllMatches(nullptr, &checker, HTNodeClass::LOCK) == 0)
    return 1;
  return checker.IsIpMatch();
}

int VornSubnetMatch(HTClass* table, unsigned int* addresses, int count, unsigned int* output) {
  if (table == nullptr)
    return 0;
  if (addresses == nullptr) {
    InterfacesPrune(table);
    return 0;
  }
  return output != nullptr ? AddressesChoose(table, addresses, count, output) : 0;
}

int VornHostKeyMatch(int countA, unsigned int* listA, int countB, unsigned int* listB,
                     unsigned int localCheckAddress, unsigned int loopbackCheckAddress) {
  if (listA == nullptr || listB == nullptr)
    return 0;
  for (int i = 0; i < countA; ++i) {
    if (!ListHolds(listB, countB, listA[i]))
      continue;
    if (listA[i] != VORN_LOOPBACK_ADDRESS || loopbackCheckAddress == VORN_LOOPBACK_ADDRESS ||
        VORNDGramClass::NICIsThisNodeIP(localCheckAddress) != 0)
      return 1;
  }
  return 0;
}
