// What the headers promise to programs beyond what the library relies on. A layer that does not
// promise it leaves this file out: VORN_CONFORMANCE_PROGRAMS=OFF.

#include "Clause.h"

#include "platform/DequeVoid.h"
#include "platform/HTClass.h"
#include "platform/KelDGram.h"
#include "platform/KelDebug.h"
#include "platform/KelMutex.h"
#include "platform/KelSemaphore.h"
#include "platform/KelThread.h"
#include "platform/VornCDRStream.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr unsigned int LOOPBACK = 0x7F000001;

bool ClockIgnoresNull() {
  return KelNtpTimeInit(nullptr, nullptr) == 1 && KelNtpTimeGet(nullptr) == 0 &&
         KelNtpTimeToString(nullptr, nullptr) == nullptr;
}

bool TimeHasNineDigits() {
  char text[KEL_NTP_TIME_TEXT_SIZE];
  const KELNtpTime half{5, 1U << 31}, most{0, UINT32_MAX};
  return std::strcmp(KelNtpTimeToString(&half, text), "5.500000000") == 0 &&
         std::strcmp(KelNtpTimeToString(&most, text), "0.999999999") == 0;
}

bool LocksRefuseNull() {
  KelSemaphoreDelete(nullptr);
  return KelMutexTake(nullptr) == 0 && KelMutexGive(nullptr) == 0 &&
         KelSemaphoreTake(nullptr, nullptr) == 0 && KelSemaphoreGive(nullptr) == 0;
}

bool AnyThreadGivesASemaphore() {
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  KelSemaphoreTake(semaphore, nullptr);
  const bool isGiven = Helper([semaphore] { KelSemaphoreGive(semaphore); }).HasEnded();
  return isGiven && KelSemaphoreTake(semaphore, nullptr) == 1;
}

bool SemaphoreIsBinary() {
  const KELNtpTime none;
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  KelSemaphoreGive(semaphore);
  const int first = KelSemaphoreTake(semaphore, &none);
  return first == 1 && KelSemaphoreTake(semaphore, &none) == 0;
}

bool TakeWaitsAsLongAsTold() {
  const KELNtpTime quarter{0, 1U << 30};
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  KelSemaphoreTake(semaphore, nullptr);
  const double start = SecondsGet();
  return KelSemaphoreTake(semaphore, &quarter) == 0 && SecondsGet() - start >= 0.24;
}

bool StrangerDoesNotGiveTheProcessLock() {
  KelThreadLock();
  bool isRefused = false;
  ThreadsRun(1, [&](int) { isRefused = KelThreadUnlock() == 0; });
  return isRefused;
}

void TextAdd(const char* text, void* to) { *static_cast<std::string*>(to) += text; }

bool SinkGetsTheText() {
  std::string printed;
  KelDebugSinkSet(TextAdd, &printed);
  return KelDebugPrint("%d|", 7) == 2 && printed == "7|";
}

bool LongTextIsCut() {
  std::string printed;
  KelDebugSinkSet(TextAdd, &printed);
  return KelDebugPrint("%01500d", 7) == 1023 && printed == std::string(1023, '0');
}

bool AddressIsAsked() {
  const auto portGet = [](KELNetioAddr* self) { return self->port - 1; };
  const auto addressGet = [](KELNetioAddr* self) { return self->address + 1; };
  KELDGram near, far;
  if (KelDGramInitialize(&near) == 0 || KelDGramInitialize(&far) == 0)
    return false;
  KELNetioAddr to{portGet, addressGet, LOOPBACK - 1, near.bind(&near, LOOPBACK, 0) + 1};
  char text[] = "text", received[9] = "";
  return far.sendTo(&far, &to, text, 4) == 1 && near.receiveFrom(&near, nullptr, received, 8) == 4;
}

bool AddressIsStored() {
  KELNetioAddr address;
  KelNetioAddrInitialize(&address, LOOPBACK, 7400);
  KelNetioAddrInitialize(nullptr, 0, 0);
  return address.addressGet(&address) == LOOPBACK && address.portGet(&address) == 7400;
}

// A pair of sockets, of which `near` has got a datagram.
struct Pair {
  KELDGram near, far;
  KELNetioAddr to, from;
  char text[5] = "text", received[9] = "";
  Pair() {
    if (KelDGramInitialize(&near) == 0 || KelDGramInitialize(&far) == 0)
      ClauseSkip("KelDGramInitialize gives no socket");
    KelNetioAddrInitialize(&to, LOOPBACK, near.bind(&near, LOOPBACK, 0));
    far.sendTo(&far, &to, text, 4);
  }
};

bool DatagramIsReceivedWithItsSource() {
  Pair pair;
  return pair.near.receiveFrom(&pair.near, &pair.from, pair.received, 8) == 4 &&
         std::strcmp(pair.received, "text") == 0 && pair.from.addressGet(&pair.from) == LOOPBACK;
}

bool CutDatagramHasItsLength() {
  Pair pair;
  return pair.near.receiveFrom(&pair.near, nullptr, pair.received, 2) == 4 &&
         std::strcmp(pair.received, "te") == 0;
}

bool NothingToReceiveIsTold() {
  Pair pair;
  errno = 0;
  return pair.far.receiveFrom(&pair.far, nullptr, pair.received, 8) == -1 && errno == EAGAIN;
}

bool WrongSendIsRefused() {
  Pair pair;
  KELNetioAddr none, beyond = pair.to;
  beyond.port += 65536;
  return pair.far.sendTo(&pair.far, &none, pair.text, 4) == 0 &&
         pair.far.sendTo(&pair.far, &beyond, pair.text, 4) == 0 &&
         pair.far.sendTo(&pair.far, nullptr, pair.text, 4) == 0;
}

bool UnknownOptionIsRefused() {
  Pair pair;
  errno = 0;
  return pair.far.optionSet(&pair.far, 0x200, pair.text, 4) != 0 && errno == ENOPROTOOPT;
}

bool ReleasedObjectIsForgotten() {
  Pair pair;
  KelDGramRelease(&pair.far);
  KelDGramRelease(nullptr);
  KelDGramDelete(nullptr);
  return pair.far.socketRecord == nullptr && pair.far.sendTo == nullptr;
}

bool StreamIsLaid() {
  char bytes[8] = "";
  VORNCDRStream stream, without;
  VornCDRStreamInitialize(&stream, bytes, 8, VORN_CDR_LITTLE_ENDIAN);
  VornCDRStreamInitialize(&without, nullptr, 8, VORN_CDR_LITTLE_ENDIAN);
  return VornCDR4ByteSerialize(&stream, "abcd") == 1 &&
         VornCDR4ByteSerialize(&without, "abcd") == 0;
}

bool OctetsAreWrittenUnaligned() {
  char bytes[8] = "";
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 5, VORN_CDR_BIG_ENDIAN);
  return VornCDROctetsSerialize(&stream, "abc", 3) == 1 &&
         VornCDROctetsSerialize(&stream, "de", 2) == 1 &&
         VornCDROctetsSerialize(&stream, "f", 1) == 0 && std::strcmp(bytes, "abcde") == 0;
}

bool OctetsAreRead() {
  char bytes[] = "abcd", read[5] = "";
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 4, VORN_CDR_BIG_ENDIAN);
  return VornCDROctetsDeserialize(&stream, read, 3) == 1 &&
         VornCDROctetsDeserialize(&stream, read, 2) == 0 && std::strcmp(read, "abc") == 0 &&
         VornCDROctetsDeserialize(&stream, read + 3, 1) == 1 && std::strcmp(read, "abcd") == 0;
}

bool PositionIsMoved() {
  char bytes[4];
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 4, VORN_CDR_BIG_ENDIAN);
  return VornCDRStreamPositionSet(&stream, 5) == 0 && VornCDRStreamPositionSet(&stream, -1) == 0 &&
         VornCDRStreamPositionSet(&stream, 4) == 1 && VornCDRStreamPositionGet(&stream) == 4;
}

bool ListIgnoresNull() {
  DequeVoid list;
  DequeVoidNode node;
  list.InsertNodeAfter(nullptr, &node);
  list.InsertNodeAfter(nullptr, nullptr);
  list.InsertNodeBefore(nullptr, nullptr);
  return list.RemoveNode(nullptr) == nullptr && list.count == 1;
}

bool RemovedNodeHasNoLinks() {
  DequeVoid list;
  DequeVoidNode nodes[3];
  for (DequeVoidNode& node : nodes)
    list.InsertNodeBefore(nullptr, &node);
  const DequeVoidNode* removed = list.RemoveNode(&nodes[1]);
  return removed->next == nullptr && removed->previous == nullptr && nodes[2].next == &nodes[0];
}

// A table that is swept, whose entries count how often their data came back.
struct Counting : HTRemoveFunc {
  void Remove(const HTKeyClass* /*key*/, void* data) override { ++*static_cast<int*>(data); }
};

int TextInsert(HTClass* table, const char* text, int* data, HTRemoveFunc* remove) {
  HTKeyClass key;
  key.text = text;
  key.status = 0;
  return table->InsertNode(&key, data, 32, remove, HTNodeClass::LOCK);
}

HTNodeClass* TextFind(HTClass* table, const char* text, short which) {
  HTKeyClass key;
  key.text = text;
  key.status = 0;
  return table->Find(&key, which, HTNodeClass::LOCK);
}

bool MarkIsSeen() {
  HTClass table;
  TextInsert(&table, "a", nullptr, nullptr);
  HTNodeClass* node = TextFind(&table, "a", HTClass::IN_USE);
  if (node == nullptr || TextFind(&table, "a", HTClass::MARKED) != nullptr)
    return false;
  node->Release(0);
  return node->IsMarked() != 0 && TextFind(&table, "a", HTClass::IN_USE) == nullptr &&
         TextFind(&table, "a", HTClass::MARKED) == node;
}

bool RetainedEntryIsKept() {
  HTClass table;
  TextInsert(&table, "a", nullptr, nullptr);
  HTNodeClass* node = TextFind(&table, "a", HTClass::IN_USE);
  node->Release(0);
  node->Retain(1);
  return table.RemoveMarked(HTNodeClass::LOCK) == 0 && node->IsMarked() == 0;
}

bool MarkedEntriesAreSwept() {
  Counting remove;
  int counts[2] = {};
  HTClass table;
  TextInsert(&table, "a", &counts[0], &remove);
  TextInsert(&table, "b", &counts[1], &remove);
  TextFind(&table, "a", HTClass::IN_USE)->Release(0);
  return table.RemoveMarked(HTNodeClass::LOCK) == 1 && counts[0] == 1 && counts[1] == 0;
}

bool TableGivesItsDataBack() {
  Counting remove;
  int count = 0;
  {
    HTClass table;
    TextInsert(&table, "a", &count, &remove);
  }
  return count == 1;
}

bool NewTableIsEmpty() {
  HTClass table;
  return TextFind(&table, "", HTClass::IN_USE | HTClass::MARKED) == nullptr;
}

// Chooses one entry; the visitor sees it alone.
struct Choice : HTMatchFunc, HTExecFunc {
  int seen = 0;
  int Match(const HTKeyClass* key, HTNodeClass* /*node*/) override {
    return std::strcmp(key->text, "a") == 0 ? 1 : 0;
  }
  int LevelEntry(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override {
    return 1;
  }
  int LevelExit(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override { return 1; }
  int Node(const HTKeyClass* /*key*/, HTNodeClass* /*node*/, int /*level*/) override {
    return ++seen;
  }
};

bool MatchChooses() {
  HTClass table;
  TextInsert(&table, "a", nullptr, nullptr);
  TextInsert(&table, "b", nullptr, nullptr);
  Choice choice;
  return table.ForAllMatches(&choice, &choice, HTNodeClass::LOCK) == 1 && choice.seen == 1;
}

}  // namespace

Clauses ProgramClauses() {
  return {
      {"KelNtpTimeGet", "null arguments do no harm", ClockIgnoresNull},
      {"KelNtpTimeToString", "writes seconds, a point and nine digits, rounded down",
       TimeHasNineDigits},
      {"KelMutexTake", "takes and gives of null return 0", LocksRefuseNull},
      {"KelSemaphoreGive", "any thread may give", AnyThreadGivesASemaphore},
      {"KelSemaphoreGive", "to give a free one changes nothing", SemaphoreIsBinary},
      {"KelSemaphoreTake", "waits as long as it is told", TakeWaitsAsLongAsTold},
      {"KelThreadUnlock", "returns 0 for a thread that does not hold the lock",
       StrangerDoesNotGiveTheProcessLock},
      {"KelDebugSinkSet", "the sink gets the text", SinkGetsTheText},
      {"KelDebugPrint", "prints the first 1023 characters of a longer text", LongTextIsCut},
      {"KelNetioAddrInitialize", "stores address and port", AddressIsStored},
      {"KELDGram::sendTo", "asks the operations of an address, not its fields", AddressIsAsked},
      {"KELDGram::sendTo", "refuses what is no destination", WrongSendIsRefused},
      {"KELDGram::optionSet", "refuses an unknown code with ENOPROTOOPT", UnknownOptionIsRefused},
      {"KELDGram::receiveFrom", "receives a datagram and its source",
       DatagramIsReceivedWithItsSource},
      {"KELDGram::receiveFrom", "returns the length of a datagram that it cuts",
       CutDatagramHasItsLength},
      {"KELDGram::receiveFrom", "returns -1 with EAGAIN if nothing waits", NothingToReceiveIsTold},
      {"KelDGramRelease", "forgets the operations, and ignores null", ReleasedObjectIsForgotten},
      {"VornCDRStreamInitialize", "lays a stream; over null, every operation fails", StreamIsLaid},
      {"VornCDROctetsSerialize", "writes bytes without padding, or nothing",
       OctetsAreWrittenUnaligned},
      {"VornCDROctetsDeserialize", "reads bytes without padding, or nothing", OctetsAreRead},
      {"VornCDRStreamPositionSet", "moves within the capacity only", PositionIsMoved},
      {"DequeVoid::InsertNodeAfter", "null nodes are ignored", ListIgnoresNull},
      {"DequeVoid::RemoveNode", "clears the links of the node", RemovedNodeHasNoLinks},
      {"HTClass::HTClass", "makes an empty table", NewTableIsEmpty},
      {"HTClass::~HTClass", "hands every entry's data to its removal function",
       TableGivesItsDataBack},
      {"HTClass::RemoveMarked", "removes marked entries, with their data handed over once",
       MarkedEntriesAreSwept},
      {"HTClass::ForAllMatches", "visits what the match chooses", MatchChooses},
      {"HTNodeClass::Release", "with 0 marks the entry", MarkIsSeen},
      {"HTNodeClass::Retain", "removes the mark", RetainedEntryIsKept},
  };
}
