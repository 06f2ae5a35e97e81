#include "platform/HTClass.h"

#include "platform/linux/TableLock.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

// Buckets with chains of entries; there is always a power of two of them. The first buckets are
// part of the table, so a table that cannot grow still works, only slower. An entry and its copy of
// the text are one block.

struct HTClass::Entry : HTNodeClass {
  Entry* next = nullptr;
  HTKeyClass key;
  HTRemoveFunc* remove;

  Entry(void* nodeData, HTRemoveFunc* removeFunction)
      : HTNodeClass(nodeData), remove(removeFunction) {}

  static Entry* New(const char* text, std::size_t length, unsigned int hash, void* nodeData,
                    HTRemoveFunc* removeFunction) {
    void* block = std::malloc(sizeof(Entry) + length + 1);
    if (block == nullptr)
      return nullptr;
    auto* entry = new (block) Entry(nodeData, removeFunction);
    char* copy = static_cast<char*>(block) + sizeof(Entry);
    std::memcpy(copy, text, length + 1);
    entry->key.status = 0;
    entry->key.text = copy;
    entry->key.hash = hash;
    return entry;
  }

  static void Delete(Entry* entry) {
    entry->~Entry();
    std::free(entry);
  }

  bool Is(const HTKeyClass& other, unsigned int otherHash) const {
    return key.hash == otherHash && std::strcmp(key.text, other.text) == 0;
  }
};

namespace {

// The walks that a thread is in, innermost first. A thread that asked to change a table it walks
// would wait for its own walk, or without the lock pull a chain from under it; so it is refused.
struct Walk {
  const HTClass* table;
  const Walk* outer;

  explicit Walk(const HTClass* walked);
  ~Walk();
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;
};

thread_local const Walk* innermostWalk = nullptr;

Walk::Walk(const HTClass* walked) : table(walked), outer(innermostWalk) { innermostWalk = this; }
Walk::~Walk() { innermostWalk = outer; }

bool IsWalkedHere(const HTClass* table) {
  const Walk* walk = innermostWalk;
  while (walk != nullptr && walk->table != table)
    walk = walk->outer;
  return walk != nullptr;
}

}  // namespace

// The table's lock for the length of one operation, or nothing with `NO_LOCK`.
class HTClass::Guard {
public:
  enum class Use { FIND, WALK, CHANGE };

  Guard(HTClass& table, int locks, Use use)
      : _lock(locks != HTNodeClass::NO_LOCK ? table.LockGet() : nullptr), _use(use) {
    if (_lock == nullptr)
      return;
    if (use == Use::FIND)
      _lock->FindBegin();
    else if (use == Use::CHANGE)
      _lock->ChangeBegin();
    else if (innermostWalk != nullptr)
      _lock->WalkWithinBegin();
    else
      _lock->WalkBegin();
  }
  ~Guard() {
    if (_lock == nullptr)
      return;
    if (_use == Use::FIND)
      _lock->FindEnd();
    else if (_use == Use::CHANGE)
      _lock->ChangeEnd();
    else
      _lock->WalkEnd();
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

private:
  TableLock* _lock;
  Use _use;
};

namespace {

// FNV-1a with 32 bits: one multiplication for each byte, and texts that differ in a digit, as those
// of addresses do, differ in the low bits, which choose the bucket.
unsigned int TextHash(const char* text) {
  unsigned int hash = 2166136261U;
  for (; *text != '\0'; ++text)
    hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619U;
  return hash;
}

bool KeyHasText(const HTKeyClass* key) {
  return key != nullptr && key->kind == 0 && key->status == 0 && key->text != nullptr;
}

}  // namespace

HTNodeClass::~HTNodeClass() = default;
HTExecFunc::~HTExecFunc() = default;
HTMatchFunc::~HTMatchFunc() = default;
HTRemoveFunc::~HTRemoveFunc() = default;

void HTNodeClass::Release(int usesLeft) {
  if (usesLeft == 0)
    __atomic_store_n(&_marked, 1, __ATOMIC_RELEASE);
}

void HTNodeClass::Retain(int usesAdded) {
  if (usesAdded > 0)
    __atomic_store_n(&_marked, 0, __ATOMIC_RELEASE);
}

HTClass::HTClass() {
  static_assert(sizeof(TableLock) <= sizeof _lock &&
                alignof(TableLock) <= alignof(pthread_rwlock_t));
  new (_lock) TableLock;
}

HTClass::~HTClass() {
  try {
    EntriesRemove(EntriesUnlink(true));
  } catch (...) {  // a destructor that lets it pass would end the process
  }
  if (_buckets != _firstBuckets)
    std::free(static_cast<void*>(_buckets));
  LockGet()->~TableLock();
}

HTNodeClass* HTClass::Find(const HTKeyClass* key, short which, int locks) {
  if (!KeyHasText(key))
    return nullptr;
  const unsigned int hash = TextHash(key->text);
  const Guard guard(*this, locks, Guard::Use::FIND);
  Entry* entry = EntryFind(*key, hash);
  if (entry == nullptr)
    return nullptr;
  return (which & (entry->IsMarked() != 0 ? MARKED : IN_USE)) != 0 ? entry : nullptr;
}

int HTClass::InsertNode(const HTKeyClass* key, void* data, short keySize, HTRemoveFunc* remove,
                        int locks) {
  if (!KeyHasText(key) || keySize <= 0 || IsWalkedHere(this))
    return 0;
  const auto room = static_cast<std::size_t>(keySize);
  const std::size_t length = strnlen(key->text, room);
  if (length == room)
    return 0;
  const unsigned int hash = TextHash(key->text);
  const Guard guard(*this, locks, Guard::Use::CHANGE);
  if (EntryFind(*key, hash) != nullptr)
    return 0;
  Entry* entry = Entry::New(key->text, length, hash, data, remove);
  if (entry == nullptr)
    return 0;
  if (_entryCount >= _bucketCount)
    BucketsGrow();
  Entry*& bucket = _buckets[hash & (_bucketCount - 1)];
  entry->next = bucket;
  bucket = entry;
  ++_entryCount;
  return 1;
}

int HTClass::ForAllMatches(HTMatchFunc* match, HTExecFunc* exec, int locks) {
  if (exec == nullptr)
    return 0;
  const Guard guard(*this, locks, Guard::Use::WALK);
  const Walk walk(this);
  if (exec->LevelEntry(nullptr, this, 0) == 0)
    return 0;
  const bool finished = EntriesVisit(match, exec);
  exec->LevelExit(nullptr, this, 0);
  return finished ? 1 : 0;
}

int HTClass::RemoveMarked(int locks) {
  if (IsWalkedHere(this))
    return 0;
  Entry* unlinked = nullptr;
  {
    const Guard guard(*this, locks, Guard::Use::CHANGE);
    unlinked = EntriesUnlink(false);
  }
  return EntriesRemove(unlinked);
}

TableLock* HTClass::LockGet() { return std::launder(reinterpret_cast<TableLock*>(_lock)); }

HTClass::Entry* HTClass::EntryFind(const HTKeyClass& key, unsigned int hash) const {
  Entry* entry = _buckets[hash & (_bucketCount - 1)];
  while (entry != nullptr && !entry->Is(key, hash))
    entry = entry->next;
  return entry;
}

bool HTClass::EntriesVisit(HTMatchFunc* match, HTExecFunc* exec) {
  // Nobody changes the chains during a walk.
  Entry* const* const end = _buckets + _bucketCount;
  for (Entry* const* bucket = _buckets; bucket != end; ++bucket)
    for (Entry* entry = *bucket; entry != nullptr; entry = entry->next)
      if ((match == nullptr || match->Match(&entry->key, entry) != 0) &&
          exec->Node(&entry->key, entry, 0) == 0)
        return false;
  return true;
}

// Without memory the table stays as it is: its chains get longer.
void HTClass::BucketsGrow() {
  const unsigned int count = _bucketCount * 2;
  auto** buckets =
      count > _bucketCount ? static_cast<Entry**>(std::calloc(count, sizeof(Entry*))) : nullptr;
  if (buckets == nullptr)
    return;
  for (unsigned int i = 0; i < _bucketCount; ++i)
    while (Entry* entry = _buckets[i]) {
      _buckets[i] = entry->next;
      Entry*& bucket = buckets[entry->key.hash & (count - 1)];
      entry->next = bucket;
      bucket = entry;
    }
  if (_buckets != _firstBuckets)
    std::free(static_cast<void*>(_buckets));
  _buckets = buckets;
  _bucketCount = count;
}

// Unlinks the marked entries, or all of them, and returns them as a list.
HTClass::Entry* HTClass::EntriesUnlink(bool all) {
  Entry* unlinked = nullptr;
  for (unsigned int i = 0; i < _bucketCount; ++i)
    for (Entry** link = &_buckets[i]; *link != nullptr;) {
      Entry* entry = *link;
      if (!all && entry->IsMarked() == 0) {
        link = &entry->next;
        continue;
      }
      *link = entry->next;
      entry->next = unlinked;
      unlinked = entry;
      --_entryCount;
    }
  return unlinked;
}

void HTClass::FirstRemove(Entry*& list) {
  struct Deleter {
    Entry* entry;
    ~Deleter() { Entry::Delete(entry); }
  } const first{list};
  list = first.entry->next;
  if (first.entry->remove != nullptr)
    first.entry->remove->Remove(&first.entry->key, first.entry->data);
}

int HTClass::EntriesRemove(Entry* list) {
  // The entries are out of the table, so nobody else can hand them over: an exception on its way
  // out of here must not leave any behind.
  struct Rest {
    Entry* list;
    ~Rest() {
      while (list != nullptr)
        try {
          FirstRemove(list);
        } catch (...) {  // the first one is on its way already
        }
    }
  } rest{list};
  int count = 0;
  for (; rest.list != nullptr; ++count)
    FirstRemove(rest.list);
  return count;
}
