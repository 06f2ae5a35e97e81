#include "hosts/VORNDeclRecipient.h"

#include "net/miscIPUtils.h"

#include <limits>
#include <new>

namespace {

// Room that the table gives a key's text; every text made here fits.
constexpr short KEY_SIZE = 32;
static_assert(VORN_ADDRESS_PORT_TEXT_SIZE <= KEY_SIZE && VORN_ADDRESS_TEXT_SIZE <= KEY_SIZE);

// Entries in use and those that only wait for the next sweep.
constexpr short EVERY_ENTRY = -32767;
static_assert(EVERY_ENTRY == (HTClass::IN_USE | HTClass::MARKED));

VORNDeclRecipient* RecipientGet(const HTNodeClass* node) {
  return node != nullptr ? static_cast<VORNDeclRecipient*>(node->data) : nullptr;
}

int EntryInsert(HTClass* table, const HTKeyClass& key, unsigned int address, int port,
                HTRemoveFunc* removalFunction) {
  auto* recipient = new (std::nothrow) VORNDeclRecipient(address, port);
  if (recipient != nullptr && recipient->IsValid() &&
      table->InsertNode(&key, recipient, KEY_SIZE, removalFunction, HTNodeClass::LOCK) != 0)
    return 1;
  delete recipient;
  return 0;
}

}  // namespace

VORNDeclRecipient::VORNDeclRecipient(unsigned int hostAddress, int hostPort)
    : address(hostAddress), port(hostPort) {}

// Defined here because it is a published name.
VORNDeclRecipient::~VORNDeclRecipient() {}

bool VORNDeclRecipient::IsValid() const { return address != 0 && port != 0 && count > 0; }

int VornDeclRecipientAdd(HTClass* table, unsigned int address, int port,
                         HTRemoveFunc* removalFunction, int withPort) {
  if (table == nullptr)
    return 0;
  char text[VORN_ADDRESS_PORT_TEXT_SIZE];
  HTKeyClass key;
  key.Set(withPort != 0 ? IPAndPortToString(address, port, text)
                        : VornAddressToString(address, text));
  HTNodeClass* node = table->Find(&key, EVERY_ENTRY, HTNodeClass::LOCK);
  if (node == nullptr)
    return EntryInsert(table, key, address, port, removalFunction);
  VORNDeclRecipient* recipient = RecipientGet(node);
  if (recipient == nullptr || recipient->count == std::numeric_limits<int>::max())
    return 0;
  recipient->count += 1;
  node->Retain(1);
  return 1;
}

void VornDeclRecipientMarkForRemoval(HTClass* table, HTKeyClass* key) {
  HTNodeClass* node = table != nullptr ? table->Find(key, EVERY_ENTRY, HTNodeClass::LOCK) : nullptr;
  VORNDeclRecipient* recipient = RecipientGet(node);
  if (recipient == nullptr || recipient->count == std::numeric_limits<int>::min())
    return;
  // Below 0 as well: a marked entry that stays may be withdrawn once more, and a program whose
  // threads withdraw before they declare comes out even.
  recipient->count -= 1;
  if (recipient->count == 0)
    node->Release(0);
}
