#include "vorndiag/QueueVerdict.h"
#include "vorndiag/QueueList.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

namespace {

using enum ProcessState;
using Look = QueueLook;
using Change = void (*)(Look&);

// A queue of size 16 that nobody uses just now, but for its receiver, which waits.
Look Sound() {
  Look look;
  look.segment.id = look.semaphore.id = look.mutex.id = 10;
  look.semaphore.mode = look.mutex.mode = look.segment.kernel.shm_perm.mode = 0664;
  look.segment.length = 25;
  look.segment.kernel.shm_segsz = 29;
  look.segment.kernel.shm_nattch = 1;
  look.segment.capacity = 17;
  look.segment.offsets = RingOffsets{0, 0};
  look.semaphore.semaphores = look.mutex.semaphores = 1;
  look.semaphore.waiting = look.mutex.value = 1;
  return look;
}

Look Changed(Change change) {
  Look look = Sound();
  change(look);
  return look;
}

void Hold(Look& look, ProcessState state, int pid = 5, std::time_t taken = 100) {
  look.mutex.value = 0;
  look.mutex.set = 100;
  look.mutex.taken = taken;
  look.mutex.process = {pid, state, "sensor"};
}

// One message of `length` bytes waits, and the receiver does something else.
void Fill(Look& look, int length, int read = 0, bool isDamaged = false) {
  look.semaphore.waiting = 0;
  look.semaphore.value = 1;
  look.segment.messages.count = 1;
  look.segment.messages.longest = length;
  look.segment.messages.isDamaged = isDamaged;
  look.segment.messages.damageOffset = read;
  look.segment.offsets = RingOffsets{RingAdvance(read, length + 4, 17), read};
}

void LineExpect(const Verdict& verdict, const std::string& part) {
  EXPECT_EQ(verdict.lines.size(), 1U) << verdict.lines.back();
  EXPECT_NE(verdict.lines.front().find(part), std::string::npos) << verdict.lines.front();
}

}  // namespace

// One look is enough for what is certain.
TEST(QueueVerdict, StateIsOneLineOfTroubleOnlyIfItLasts) {
  // clang-format off
  const struct { Change change; const char *says, *advises; bool isCertain = false; } rows[] = {
      {[](Look& q) { Hold(q, GONE); }, "pid 5, gone: a sender died", "7 --give-mutex`", true},
      {[](Look& q) { Hold(q, STOPPED); }, "held by pid 5 (sensor), stopped", "kill -CONT"},
      {[](Look& q) { Hold(q, ALIVE); }, "by pid 5 (sensor), which lives", "-mutex --force`"},
      {[](Look& q) { Hold(q, UNKNOWN); }, "which /proc does not show", "7 --give-mutex --force`"},
      {[](Look& q) { Hold(q, UNKNOWN, 0, 100); }, "another process namespace", "-mutex --force`"},
      {[](Look& q) { Hold(q, UNKNOWN, 0, 0); }, "no sender took it last", "-mutex --force`"},
      {[](Look& q) { Hold(q, GONE, 5, 99); }, "no sender took it last", "-mutex --force`"},
      {[](Look& q) { q.mutex = {}; }, "the mutex is missing", "makes one"},
      {[](Look& q) { q.semaphore = {}; }, "the semaphore is missing", "start it again"},
      {[](Look& q) { q.semaphore = q.mutex = {}; }, "semaphore and mutex are missing", "start it"},
      {[](Look& q) { q.mutex.error = EACCES; }, "mutex cannot be looked at", "denied", true},
      {[](Look& q) { q.semaphore.error = EACCES; }, "semaphore cannot be looked at", "denied", true},
      {[](Look& q) { q.segment.error = EACCES; }, "segment cannot be looked at", "denied", true},
      {[](Look& q) { q.semaphore.semaphores = 3; }, "semaphore's key has a set of 3", "another id"},
      {[](Look& q) { q.mutex.semaphores = 2; }, "mutex's key has a set of 2", "7 --remove --force`"},
      {[](Look& q) { q.segment.offsets.reset(); }, "an offset lies outside", "7 --remove`"},
      {[](Look& q) { Fill(q, 1, 4, true); }, "damaged at ring offset 4", "7 --remove`"},
      {[](Look& q) { Fill(q, 1); q.segment.kernel.shm_nattch = 0; }, "nobody is attached", "7 --remove`", true},
      {[](Look& q) { q.semaphore.waiting = 2; }, "more than one receiver", "others damage it"},
      {[](Look& q) { Fill(q, 1); q.semaphore = Sound().semaphore; }, "sleeps beside messages", "7 --give-mutex`"},
      {[](Look& q) { Fill(q, 1); }, "1 messages wait and none was received", "made by"},
      {[](Look& q) { Fill(q, 9); }, "the queue is full", "made by"},
      {[](Look& q) { q.segment.fault = SegmentFault::SEGMENT_TOO_SMALL; }, "no queue's (too small", "7 --remove --force`"},
      {[](Look& q) { q.segment = {}; q.mutex.value = 0; }, "gone but a taken mutex is left", "7 --remove`"},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.says);
    const Look changed = Changed(row.change);
    const Verdict lasting = VerdictGet(7, changed, changed);
    EXPECT_TRUE(lasting.isTrouble);
    LineExpect(lasting, row.says);
    LineExpect(lasting, row.advises);
    EXPECT_FALSE(VerdictGet(7, changed, Sound()).isTrouble);
    EXPECT_EQ(VerdictGet(7, Sound(), changed).isTrouble, row.isCertain);
  }
}

TEST(QueueVerdict, WhatMovesIsNotedOnly) {
  // clang-format off
  const struct { Change before, after; const char* says; } rows[] = {
      {[](Look&) {}, [](Look&) {}, "nothing wrong: the receiver waits"},
      {[](Look&) {}, [](Look& q) { q.semaphore.waiting = 0; }, "nothing wrong, and no receiver"},
      {[](Look& q) { Hold(q, ALIVE, 5, 100); }, [](Look& q) { Hold(q, ALIVE, 5, 101); }, "nothing"},
      {[](Look& q) { Hold(q, ALIVE, 5, 100); }, [](Look& q) { Hold(q, ALIVE, 6, 100); }, "nothing"},
      {[](Look& q) { Fill(q, 5); }, [](Look& q) { Fill(q, 5, 9); }, "full for a moment"},
      {[](Look& q) { Fill(q, 4); }, [](Look& q) { Fill(q, 4, 8); }, "nothing wrong"},
      {[](Look& q) { Fill(q, 1, 4, true); }, [](Look& q) { Fill(q, 1, 5, true); }, "nothing wrong"},
      {[](Look&) {}, [](Look& q) { q.semaphore = q.mutex = {}; }, "look again"},
      {[](Look& q) { q.segment = {}; }, [](Look& q) { q.segment = {}; }, "left without a segment"},
      {[](Look&) {}, [](Look& q) { q = {}; }, "just been removed"},
  };
  // clang-format on
  for (const auto& row : rows) {
    const Verdict verdict = VerdictGet(7, Changed(row.before), Changed(row.after));
    EXPECT_FALSE(verdict.isTrouble) << verdict.lines.front();
    LineExpect(verdict, row.says);
  }
}

TEST(Process, OnlyWhatIsCertainlyGoneIsGone) {
  // clang-format off
  using Facts = std::optional<ProcessFacts>;  // name, state, threads, start
  const struct { const char* name; Facts facts; std::time_t time; ProcessState state; bool exists = true; } rows[] = {
      {"no such number", std::nullopt, 100, GONE, false},
      {"hidden", std::nullopt, 100, UNKNOWN},
      {"zombie", ProcessFacts{"p", 'Z', 1, 50}, 100, GONE},
      {"first thread ended", ProcessFacts{"p", 'Z', 2, 50}, 100, ALIVE},
      {"stopped", ProcessFacts{"p", 'T', 1, 50}, 100, STOPPED},
      {"traced", ProcessFacts{"p", 't', 3, 50}, 100, STOPPED},
      {"perhaps older", ProcessFacts{"p", 'R', 1, 102}, 100, ALIVE},
      {"younger", ProcessFacts{"p", 'R', 1, 103}, 100, GONE},
      {"never mind when", ProcessFacts{"p", 'R', 1, 103}, 0, ALIVE},
  };
  // clang-format on
  for (const auto& row : rows)
    EXPECT_EQ(ProcessStateGet(row.exists, row.facts, row.time), row.state) << row.name;
}

TEST(Process, StatLineIsReadWhateverTheName) {
  const std::string ticks = std::to_string(30 * sysconf(_SC_CLK_TCK));
  const std::optional<ProcessFacts> facts = ProcessFactsGet(
      "5 (a) R (b c) T 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 33 18 " + ticks + " 20 21\n", 1000);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->name, "a) R (b c");
  EXPECT_EQ(facts->state, 'T');
  EXPECT_EQ(facts->threads, 33);
  EXPECT_EQ(facts->started, 1030);
  for (const char* broken : {"", "5 (a", "5 (a) T 1 2 3", "5 )a( T"})
    EXPECT_FALSE(ProcessFactsGet(broken, 1000)) << broken;
}

TEST(QueueList, CandidatesAreNearIdsAndFarOnesWithTwoObjects) {
  // -0x54430000 is the base; the far ids are 40000, 50000 and, for the mutex's key, 60000.
  std::istringstream segments("  key  shmid perms size\n-1413677056 0 664\n0 5 600\n"
                              "-1413597056 1 664\n-1413557055 7 600\n");
  std::istringstream sets(
      "key semid perms nsems\n-1413677066 0 664 1\n-1413597056 3 664 1\n"
      "-1413577056 9 600 1\n0 6 600 1\n-1413557055 2 600 1\n-1413611523 1 664 1\n");
  EXPECT_EQ(CandidatesGet(KeysGet(&segments), KeysGet(&sets)),
            (std::set<int>{-5, 0, 32766, 40000}));
}

// Of a queue without a mutex.
TEST(QueueList, FarQueueHasTwoObjectsThatLookLikeIt) {
  // clang-format off
  const struct { const char* name; Change change; int id; bool isLikely; } rows[] = {
      {"sets alone", [](Look& q) { q.mutex = q.semaphore; q.segment = {}; }, 40000, true},
      {"no mutex", [](Look&) {}, 40000, true},
      {"one set alone", [](Look& q) { q.segment = {}; }, 40000, false},
      {"length of another", [](Look& q) { q.segment.length = 24; }, 40000, false},
      {"segment of another", [](Look& q) { q.segment.kernel = {}; }, 40000, false},
      {"set of another", [](Look& q) { q.semaphore.mode = 0600; }, 40000, false},
      {"large set", [](Look& q) { q.semaphore.semaphores = 2; }, 40000, false},
      {"near, one set alone", [](Look& q) { q.segment = {}; }, -32768, true},
      {"nearly near", [](Look& q) { q.segment = {}; }, -32769, false},
      {"near, removed", [](Look& q) { q = {}; }, 32767, false},
  };
  // clang-format on
  for (const auto& row : rows) {
    Look look = Changed([](Look& q) { q.mutex = {}; });
    row.change(look);
    EXPECT_EQ(QueueIsLikely(row.id, look), row.isLikely) << row.name;
  }
}
