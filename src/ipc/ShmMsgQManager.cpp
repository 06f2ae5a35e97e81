#include "ipc/ShmMsgQManager.h"

#include "platform/DequeVoid.h"
#include "platform/KelSemaphore.h"

#include <new>

DequeVoid* ShmMsgQManager::_list = nullptr;
KELSemaphore* ShmMsgQManager::_mutex = nullptr;

namespace {

ShmMsgQ* QueueOf(const DequeVoidNode* node) { return static_cast<ShmMsgQ*>(node->data); }

// A node with a valid queue object, made from `arguments`; or null. The node comes first, so that
// no queue is made that could not be registered. With `destroyHalfMade` an invalid queue first
// gives back what it got on the host.
template <typename... Arguments>
DequeVoidNode* NodeNew(bool destroyHalfMade, Arguments... arguments) {
  auto* node = new (std::nothrow) DequeVoidNode;
  if (node == nullptr)
    return nullptr;
  ShmMsgQ* queue = new (std::nothrow) ShmMsgQImpl(1, arguments...);
  if (queue != nullptr && queue->IsValid() != 0) {
    node->data = queue;
    return node;
  }
  if (queue != nullptr && destroyHalfMade)
    queue->Destroy();
  delete queue;
  delete node;
  return nullptr;
}

// A count can become negative: `Release` by id takes a holder off every object of the queue, and
// one by object may be called once too often. It wraps instead of overflowing: counts are the
// callers' business, and never a trap.
void CountAdd(int& count, int change) {
  count = static_cast<int>(static_cast<unsigned int>(count) + static_cast<unsigned int>(change));
}

}  // namespace

class ShmMsgQManager::Lock {
public:
  Lock() { KelSemaphoreTake(_mutex, nullptr); }
  ~Lock() { KelSemaphoreGive(_mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

int ShmMsgQManager::Initialize() {
  if (_list != nullptr)
    return 1;
  _list = new (std::nothrow) DequeVoid;
  if (_list == nullptr)
    return 0;
  _mutex = KelSemaphoreMutexNew(0);
  if (_mutex != nullptr)
    return 1;
  delete _list;
  _list = nullptr;
  return 0;
}

void ShmMsgQManager::Destroy() {
  if (_list != nullptr) {
    {
      const Lock lock;
      QueuesDelete(false);
    }
    delete _list;
    _list = nullptr;
  }
  if (_mutex != nullptr)
    KelSemaphoreDelete(_mutex);
  _mutex = nullptr;
}

void ShmMsgQManager::ReleaseAll() {
  if (_list == nullptr)
    return;
  const Lock lock;
  QueuesDelete(true);
}

ShmMsgQ* ShmMsgQManager::New(int id, unsigned int size) {
  DequeVoidNode* node = _list != nullptr ? NodeNew(true, id, size) : nullptr;
  if (node == nullptr)
    return nullptr;
  const Lock lock;
  _list->InsertNodeAfter(_list->last, node);
  return QueueOf(node);
}

ShmMsgQ* ShmMsgQManager::Open(int id) {
  DequeVoidNode* node = _list != nullptr ? NodeNew(false, id) : nullptr;
  if (node == nullptr)
    return nullptr;
  const Lock lock;
  _list->InsertNodeAfter(_list->last, node);
  return QueueOf(node);
}

int ShmMsgQManager::Create(int id) {
  if (_list == nullptr)
    return 0;
  const Lock lock;
  if (NodeFind(id) != nullptr)
    return 1;
  DequeVoidNode* node = NodeNew(true, id);
  if (node == nullptr)
    return 0;
  _list->InsertNodeBefore(_list->first, node);
  return 1;
}

ShmMsgQ* ShmMsgQManager::Acquire(int id) {
  if (_list == nullptr)
    return nullptr;
  const Lock lock;
  ShmMsgQ* found = nullptr;
  for (DequeVoidNode* node = _list->first; node != nullptr; node = node->next) {
    if (QueueOf(node)->_id != id)
      continue;
    found = QueueOf(node);
    CountAdd(found->_refCount, 1);
  }
  return found;
}

void ShmMsgQManager::Release(ShmMsgQ* queue, int destroy) {
  if (queue == nullptr || _list == nullptr)
    return;
  const Lock lock;
  CountAdd(queue->_refCount, -1);
  if (queue->_refCount != 0)
    return;
  DequeVoidNode* own = nullptr;
  bool hasOthers = false;
  for (DequeVoidNode* node = _list->first; node != nullptr; node = node->next) {
    if (QueueOf(node) == queue)
      own = node;
    else if (QueueOf(node)->_id == queue->_id)
      hasOthers = true;
  }
  if (own != nullptr)
    delete _list->RemoveNode(own);
  if (destroy != 0 && !hasOthers)
    queue->Destroy();
  delete queue;
}

void ShmMsgQManager::Release(int id) {
  if (_list == nullptr)
    return;
  const Lock lock;
  for (DequeVoidNode* node = _list->first; node != nullptr;) {
    DequeVoidNode* const next = node->next;
    ShmMsgQ* queue = QueueOf(node);
    if (queue->_id == id) {
      CountAdd(queue->_refCount, -1);
      if (queue->_refCount == 0) {
        delete _list->RemoveNode(node);
        delete queue;
      }
    }
    node = next;
  }
}

int ShmMsgQManager::Send(int id, const char* data, int length) {
  if (_list == nullptr)
    return 0;
  const Lock lock;
  const DequeVoidNode* node = NodeFind(id);
  return node != nullptr ? QueueOf(node)->Send(data, length) : 0;
}

void ShmMsgQManager::Print() {
  if (_list == nullptr)
    return;
  const Lock lock;
  for (DequeVoidNode* node = _list->first; node != nullptr; node = node->next)
    QueueOf(node)->Print();
}

DequeVoidNode* ShmMsgQManager::NodeFind(int id) {
  DequeVoidNode* node = _list->first;
  while (node != nullptr && QueueOf(node)->_id != id)
    node = node->next;
  return node;
}

void ShmMsgQManager::QueuesDelete(bool destroyCreated) {
  while (DequeVoidNode* node = _list->first) {
    ShmMsgQ* queue = QueueOf(node);
    delete _list->RemoveNode(node);
    if (destroyCreated && queue->_isCreator != 0)
      queue->Destroy();
    delete queue;
  }
}
