#ifndef PLATFORM_HT_CLASS_H
#define PLATFORM_HT_CLASS_H

#include "platform/VornExport.h"

#include <pthread.h>

class HTClass;
class TableLock;

/// What an entry is found by. The library makes keys on the stack, over a text of its own; the
/// table copies what it keeps. Append only: programs are linked against the order of the fields.
class HTKeyClass {
public:
  int kind = 0;                ///< 0: a text. The table refuses any other value
  int status = -1;             ///< 0: the key has a text; -1: it has none, and finds nothing
  const char* text = nullptr;  ///< terminated. The caller's; in a key that the table kept, its own
  unsigned int hash = 0;       ///< of the text, in keys that the table kept; elsewhere 0, not read

  /// Lets the key point at the text `key`, without a copy, clears `status` and `hash`, and
  /// returns 1. With a null `key` the key has no text, `hash` stays as it was, and the result is 0.
  /// The library defines this operation, in hosts/HTKeyClass.cpp; a lower layer does not.
  VORN_API int Set(const char* key);
};

/// One entry of a table. Append only: programs are linked against the order of the virtual
/// operations, which begins with the destructor, and of the fields.
class VORN_API HTNodeClass {
public:
  /// Lock modes of the table's operations; any value but 0 counts as `LOCK`.
  enum Locks : int {
    NO_LOCK = 0,  ///< the caller keeps other threads away
    LOCK = 1,     ///< the table's own lock is held
  };

  /// For the table, which alone makes and deletes nodes.
  virtual ~HTNodeClass();
  /// Says that a use has ended and how many are left. 0 marks the entry for removal; any other
  /// value changes nothing. A thread that has marked an entry finds the node again before it uses
  /// it.
  virtual void Release(int usesLeft);
  /// Says that uses were added. More than 0 removes the mark; any other value changes nothing.
  virtual void Retain(int usesAdded);

  /// Non-zero while the entry is marked for removal.
  int IsMarked() const { return __atomic_load_n(&_marked, __ATOMIC_ACQUIRE); }

  HTNodeClass(const HTNodeClass&) = delete;
  HTNodeClass& operator=(const HTNodeClass&) = delete;

  void* data;  ///< what `InsertNode` was given; the table does not look at it

protected:
  /// For the table: an entry with `nodeData`, not marked.
  explicit HTNodeClass(void* nodeData) : data(nodeData) {}

private:
  // Stored by whoever releases the entry and loaded by a sweep, both atomically: what the releasing
  // thread wrote to the data before is there when the removal function sees it.
  int _marked = 0;
};

/// A visitor. Keys and nodes are the table's, valid during the call. A visitor may find, visit,
/// release and retain in the table that it walks; an insertion or a sweep is refused there. Append
/// only: programs are linked against the order of the virtual operations, which begins with the
/// destructor.
class VORN_API HTExecFunc {
public:
  /// Visitors are the program's; the table deletes none.
  virtual ~HTExecFunc();
  /// Called once before the first entry, with a null key and level 0, since a table has only one
  /// level. A result of 0 ends the walk.
  virtual int LevelEntry(const HTKeyClass* key, HTClass* table, int level) = 0;
  /// Called once after the last entry visited, also if `Node` stopped the walk, but not if
  /// `LevelEntry` ended it. The result is not read.
  virtual int LevelExit(const HTKeyClass* key, HTClass* table, int level) = 0;
  /// Called for each entry that is chosen. A result of 0 stops the walk.
  virtual int Node(const HTKeyClass* key, HTNodeClass* node, int level) = 0;
};

/// Chooses the entries of a walk. Append only: programs are linked against the order of the virtual
/// operations, which begins with the destructor.
class VORN_API HTMatchFunc {
public:
  /// Like visitors, these are the program's.
  virtual ~HTMatchFunc();
  /// Non-zero for an entry that the visitor is to see.
  virtual int Match(const HTKeyClass* key, HTNodeClass* node) = 0;
};

/// Disposes of the data of entries that are removed. The program that gave it to `InsertNode` owns
/// it and keeps it for as long as the entry. Append only: programs are linked against the order of
/// the virtual operations, which begins with the destructor.
class VORN_API HTRemoveFunc {
public:
  /// Like visitors, these are the program's.
  virtual ~HTRemoveFunc();
  /// Called once for each entry, when it is out of the table, on the thread that sweeps the table
  /// or destroys it. A sweep holds no lock meanwhile, so the table may be used. After an exception
  /// the entry is removed all the same, and so are the others of the sweep. The first exception
  /// then passes to the caller of `RemoveMarked`; those after it, and all in the table's
  /// destructor, are dropped.
  virtual void Remove(const HTKeyClass* key, void* data) = 0;
};

/// A hash table of entries that are found by a text. The library finds, inserts and visits. The
/// program owns the table, fills it and sweeps it.
///
/// Life of an entry: `InsertNode` makes it, in use. `Release(0)` marks it for removal. A marked
/// entry stays in the table and can be found and visited; `Retain` removes the mark again. Only
/// `RemoveMarked` and the table's destructor remove entries. They hand the data of each entry that
/// goes to its removal function, once.
///
/// Threads: with `LOCK`, any number of threads find, visit, insert and sweep at the same time. With
/// `NO_LOCK` the caller keeps other threads away.
/// - A find never waits for a walk. It waits only while an insertion or a sweep does its work.
/// - An insertion or a sweep waits for the walks that are under way, and for nothing that comes
///   later. A walk that begins waits for those insertions and sweeps that wait already.
/// - A walk that begins inside another walk, of this or another table, does not wait for them: both
///   could wait for ever. So threads that walk this table inside walks of another one, always one
///   or more of them at a time, can hold an insertion or a sweep up.
/// - A visitor that inserts into another table, or sweeps it, holds up its own table meanwhile.
///   Keep one order of tables for that.
/// - A visitor must not wait for a thread that may be about to walk, change or sweep this table.
///   That thread may hold a mutex for which the visitor waits.
///
/// A found node is not locked: it is good until it is marked and swept. So a thread that revives a
/// marked entry keeps sweeps away from its `Find` until its `Retain`. Nodes need no such care while
/// they are visited. The entry's data has no lock of its own.
///
/// Append only: programs are linked against the order of the fields, and against the size.
class HTClass {
public:
  /// What `Find` looks among: bits of its `which`.
  enum Which : short {
    IN_USE = 0x0001,   ///< entries that are not marked for removal
    MARKED = -0x8000,  ///< entries that are
  };

  /// Makes an empty table, without an allocation.
  VORN_API HTClass();
  /// Removes every entry, marked or not. Nobody uses the table any more.
  VORN_API ~HTClass();
  HTClass(const HTClass&) = delete;
  HTClass& operator=(const HTClass&) = delete;

  /// Returns the entry with the text of `key`, if it is one of those that `which` asks for. The
  /// library passes -32767, which is `MARKED` and `IN_USE`. Returns null if there is no such entry
  /// or the key has no text.
  VORN_API HTNodeClass* Find(const HTKeyClass* key, short which, int locks);

  /// Puts an entry with `data` into the table, under a copy of the key's text. `keySize` is the
  /// most that the table may keep of a text, in bytes with the terminator; the library passes 32.
  /// `remove` gets the data when the entry is removed; if it is null, the data stays the caller's.
  /// Returns 1. Returns 0, with nothing kept and `remove` not called, for a key without text, a
  /// text that is too long, a text that the table holds already (marked or not), without memory,
  /// and inside a walk of this table.
  VORN_API int InsertNode(const HTKeyClass* key, void* data, short keySize, HTRemoveFunc* remove,
                          int locks);

  /// Visits the entries that `match` chooses (null: every entry), marked ones as well, in no
  /// particular order. Returns 0 if the visitor stopped the walk or is null, else 1. An exception
  /// from `match` or the visitor ends the walk, and the table can be used as before.
  VORN_API int ForAllMatches(HTMatchFunc* match, HTExecFunc* exec, int locks);

  /// Removes the marked entries. Returns how many there were; 0 inside a walk of this table.
  VORN_API int RemoveMarked(int locks);

private:
  struct Entry;
  class Guard;

  TableLock* LockGet();
  Entry* EntryFind(const HTKeyClass& key, unsigned int hash) const;
  bool EntriesVisit(HTMatchFunc* match, HTExecFunc* exec);
  void BucketsGrow();
  Entry* EntriesUnlink(bool all);
  static void FirstRemove(Entry*& list);
  static int EntriesRemove(Entry* list);

  static constexpr unsigned int FIRST_BUCKET_COUNT = 16;

  // The lock is made here by the constructor. Bytes, of the size of the host's own lock: so a
  // better lock does not change what programs link against.
  alignas(pthread_rwlock_t) unsigned char _lock[sizeof(pthread_rwlock_t)];
  Entry* _firstBuckets[FIRST_BUCKET_COUNT] = {};
  Entry** _buckets = _firstBuckets;  ///< chains; a power of two of them
  unsigned int _bucketCount = FIRST_BUCKET_COUNT;
  unsigned int _entryCount = 0;
};

#endif
