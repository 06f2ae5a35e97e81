#include "net/VORNRecvMulticastGroup.h"

#include "net/miscIPUtils.h"
#include "platform/DequeVoid.h"

#include <climits>
#include <new>

namespace {

VORNRecvMulticastGroup* GroupOf(const DequeVoidNode* node) {
  return static_cast<VORNRecvMulticastGroup*>(node->data);
}

DequeVoidNode* NodeFind(const DequeVoid* groups, unsigned int address) {
  DequeVoidNode* node = groups != nullptr ? groups->first : nullptr;
  while (node != nullptr && GroupOf(node)->address != address)
    node = node->next;
  return node;
}

}  // namespace

VORNRecvMulticastGroup::VORNRecvMulticastGroup(unsigned int groupAddress) : address(groupAddress) {}

// The fields are public: a program can leave a negative count in them.
int VORNRecvMulticastGroup::IsValid() const {
  return HostIPIsMulticastAddress(address) != 0 && refCount >= 0 ? 1 : 0;
}

VORNRecvMulticastGroupManager::VORNRecvMulticastGroupManager()
    : _groups(new (std::nothrow) DequeVoid) {}

VORNRecvMulticastGroupManager::~VORNRecvMulticastGroupManager() {
  delete _groups;
  _groups = nullptr;
}

int VORNRecvMulticastGroupManager::Add(unsigned int address) {
  if (const DequeVoidNode* known = NodeFind(_groups, address)) {
    VORNRecvMulticastGroup* joined = GroupOf(known);
    return joined->refCount < INT_MAX ? ++joined->refCount : -1;
  }
  if (_groups == nullptr)
    return -1;
  auto* group = new (std::nothrow) VORNRecvMulticastGroup(address);
  auto* node = new (std::nothrow) DequeVoidNode{nullptr, nullptr, group};
  if (group == nullptr || node == nullptr) {
    delete group;
    delete node;
    return -1;
  }
  _groups->InsertNodeAfter(_groups->last, node);
  return group->refCount;
}

int VORNRecvMulticastGroupManager::Remove(unsigned int address) {
  DequeVoidNode* node = NodeFind(_groups, address);
  if (node == nullptr)
    return -1;
  VORNRecvMulticastGroup* group = GroupOf(node);
  if (group->refCount > 1)
    return --group->refCount;
  delete _groups->RemoveNode(node);
  delete group;
  return 0;
}

unsigned int VORNRecvMulticastGroupManager::HeadGet() const {
  return IsEmpty() != 0 ? 0 : GroupOf(_groups->first)->address;
}

int VORNRecvMulticastGroupManager::IsEmpty() const {
  return _groups == nullptr || _groups->count == 0 ? 1 : 0;
}

int VORNRecvMulticastGroupManager::IsValid() const { return _groups != nullptr ? 1 : 0; }
