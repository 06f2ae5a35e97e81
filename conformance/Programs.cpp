// What the headers promise to programs beyond what the library relies on. A layer that does not
// promise it leaves out this file and ProgramContainers.cpp: VORN_CONFORMANCE_PROGRAMS=OFF.

#include "Clause.h"

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
  ClauseRequire("KelNtpTimeInit", KelNtpTimeInit(nullptr, nullptr) == 1);
  ClauseRequire("KelNtpTimeGet", KelNtpTimeGet(nullptr) == 0);
  ClauseRequire("KelNtpTimeToString", KelNtpTimeToString(nullptr, nullptr) == nullptr);
  return true;
}

bool TimeHasNineDigits() {
  char text[KEL_NTP_TIME_TEXT_SIZE];
  const KELNtpTime half{5, 1U << 31}, most{0, UINT32_MAX};
  ClauseRequire("of 5.5 s", std::strcmp(KelNtpTimeToString(&half, text), "5.500000000") == 0);
  ClauseRequire("of the greatest fraction",
                std::strcmp(KelNtpTimeToString(&most, text), "0.999999999") == 0);
  return true;
}

bool LocksRefuseNull() {
  KelSemaphoreDelete(nullptr);
  ClauseRequire("KelMutexTake", KelMutexTake(nullptr) == 0);
  ClauseRequire("KelMutexGive", KelMutexGive(nullptr) == 0);
  ClauseRequire("KelSemaphoreTake", KelSemaphoreTake(nullptr, nullptr) == 0);
  ClauseRequire("KelSemaphoreGive", KelSemaphoreGive(nullptr) == 0);
  return true;
}

bool AnyThreadGivesASemaphore() {
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  KelSemaphoreTake(semaphore, nullptr);
  ClauseRequire("the end of the give",
                Helper([semaphore] { KelSemaphoreGive(semaphore); }).HasEnded());
  ClauseRequire("the take after it", KelSemaphoreTake(semaphore, nullptr) == 1);
  return true;
}

bool SemaphoreIsBinary() {
  const KELNtpTime none;
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  KelSemaphoreGive(semaphore);
  ClauseRequire("the first take after it", KelSemaphoreTake(semaphore, &none) == 1);
  ClauseRequire("the second take after it", KelSemaphoreTake(semaphore, &none) == 0);
  return true;
}

// It has no greatest time: a busy host may go on late.
bool TakeWaitsAsLongAsTold() {
  const KELNtpTime quarter{0, 1U << 30};
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  KelSemaphoreTake(semaphore, nullptr);
  const double start = SecondsGet();
  ClauseRequire("the result", KelSemaphoreTake(semaphore, &quarter) == 0);
  ClauseRequire("the time", SecondsGet() - start >= 0.24);
  return true;
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
  ClauseRequire("the result", KelDebugPrint("%d|", 7) == 2);
  ClauseRequire("the text", printed == "7|");
  return true;
}

bool LongTextIsCut() {
  std::string printed;
  KelDebugSinkSet(TextAdd, &printed);
  ClauseRequire("the result", KelDebugPrint("%01500d", 7) == 1023);
  ClauseRequire("the text", printed == std::string(1023, '0'));
  return true;
}

void PieceCount(const char* /*text*/, void* pieces) { ++*static_cast<int*>(pieces); }

bool EveryPieceIsHandedOver() {
  const char* none = nullptr;
  int pieces = 0;
  KelDebugSinkSet(PieceCount, &pieces);
  ClauseRequire("the result for a null format", KelDebugPrint(none, 0) < 0);
  ClauseRequire("what the sink gets for it", pieces == 0);
  ClauseRequire("the result for an empty text", KelDebugPrint("%s", "") == 0);
  ClauseRequire("what the sink gets for it", pieces == 1);
  return true;
}

// Two sockets; `near` is bound.
struct Sockets {
  KELDGram near, far;
  int port;
  Sockets() {
    if (KelDGramInitialize(&near) == 0 || KelDGramInitialize(&far) == 0)
      ClauseSkip("KelDGramInitialize gives no socket");
    port = near.bind(&near, LOOPBACK, 0);
  }
};

bool AddressIsAsked() {
  const auto portGet = [](KELNetioAddr* self) { return self->port - 1; };
  const auto addressGet = [](KELNetioAddr* self) { return self->address + 1; };
  Sockets sockets;
  KELNetioAddr to{portGet, addressGet, LOOPBACK - 1, sockets.port + 1};
  char text[] = "text";
  ClauseRequire("the result", sockets.far.sendTo(&sockets.far, &to, text, 4) == 1);
  ClauseRequire("the datagram", DatagramAwait(sockets.near.socketGet(&sockets.near)));
  return true;
}

bool AddressIsStored() {
  KELNetioAddr address;
  KelNetioAddrInitialize(&address, LOOPBACK, 7400);
  KelNetioAddrInitialize(nullptr, 0, 0);
  ClauseRequire("the address", address.addressGet(&address) == LOOPBACK);
  ClauseRequire("the port", address.portGet(&address) == 7400);
  return true;
}

// Sockets of which `near` gets a datagram.
struct Pair : Sockets {
  KELNetioAddr to, from;
  char text[5] = "text", received[9] = "";
  Pair() {
    KelNetioAddrInitialize(&to, LOOPBACK, port);
    far.sendTo(&far, &to, text, 4);
  }
  int Receive(KELNetioAddr* source, int capacity) {
    DatagramAwait(near.socketGet(&near));
    return near.receiveFrom(&near, source, received, capacity);
  }
};

bool DatagramIsReceivedWithItsSource() {
  Pair pair;
  ClauseRequire("the length", pair.Receive(&pair.from, 8) == 4);
  ClauseRequire("the bytes", std::strcmp(pair.received, "text") == 0);
  ClauseRequire("the source", pair.from.addressGet(&pair.from) == LOOPBACK);
  return true;
}

bool CutDatagramHasItsLength() {
  Pair pair;
  ClauseRequire("the length", pair.Receive(nullptr, 2) == 4);
  ClauseRequire("the bytes", std::strcmp(pair.received, "te") == 0);
  return true;
}

bool EmptyDatagramIsAnswered() {
  Pair pair;
  pair.Receive(nullptr, 8);
  pair.far.sendTo(&pair.far, &pair.to, pair.text, 0);
  ClauseRequire("the length", pair.Receive(&pair.from, 8) == 0);
  ClauseRequire("an answer to its source",
                pair.near.sendTo(&pair.near, &pair.from, pair.text, 4) == 1);
  ClauseRequire("the answer's arrival", DatagramAwait(pair.far.socketGet(&pair.far)));
  return true;
}

bool NothingToReceiveIsTold() {
  Pair pair;
  errno = 0;
  ClauseRequire("the result", pair.far.receiveFrom(&pair.far, nullptr, pair.received, 8) == -1);
  ClauseRequire("errno", errno == EAGAIN);
  return true;
}

bool WrongSendIsRefused() {
  Pair pair;
  KELNetioAddr none, beyond = pair.to;
  beyond.port += 65536;
  ClauseRequire("an address without operations",
                pair.far.sendTo(&pair.far, &none, pair.text, 4) == 0);
  ClauseRequire("a port of 65536 and more", pair.far.sendTo(&pair.far, &beyond, pair.text, 4) == 0);
  ClauseRequire("null", pair.far.sendTo(&pair.far, nullptr, pair.text, 4) == 0);
  beyond.port = 65535;
  ClauseRequire("the port 65535", pair.far.sendTo(&pair.far, &beyond, pair.text, 4) == 1);
  return true;
}

bool UnknownOptionIsRefused() {
  Pair pair;
  errno = 0;
  ClauseRequire("the result", pair.far.optionSet(&pair.far, 0x200, pair.text, 4) != 0);
  ClauseRequire("errno", errno == ENOPROTOOPT);
  return true;
}

bool ReleasedObjectIsForgotten() {
  Pair pair;
  KelDGramRelease(&pair.far);
  KelDGramRelease(nullptr);
  KelDGramDelete(nullptr);
  ClauseRequire("the socket record", pair.far.socketRecord == nullptr);
  ClauseRequire("sendTo", pair.far.sendTo == nullptr);
  return true;
}

bool StreamIsLaid() {
  char bytes[8] = "";
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 8, VORN_CDR_LITTLE_ENDIAN);
  ClauseRequire("over a buffer", VornCDR4ByteSerialize(&stream, "abcd") == 1);
  for (const bool isNull : {true, false}) {
    const std::string row = isNull ? " over null" : " over a negative capacity";
    char item[5] = "item";
    VornCDRStreamInitialize(&stream, isNull ? nullptr : bytes, isNull ? 8 : -8,
                            VORN_CDR_LITTLE_ENDIAN);
    ClauseRequire("an item" + row, VornCDR4ByteSerialize(&stream, item) == 0);
    ClauseRequire("reading an item" + row, VornCDR4ByteDeserialize(&stream, item) == 0);
    ClauseRequire("bytes" + row, VornCDROctetsSerialize(&stream, item, 4) == 0);
    ClauseRequire("reading bytes" + row, VornCDROctetsDeserialize(&stream, item, 4) == 0);
    ClauseRequire("a position" + row, VornCDRStreamPositionSet(&stream, 1) == 0);
  }
  return true;
}

bool StreamRefusesNull() {
  char bytes[] = "untouched", item[5] = "item";
  VORNCDRStream stream;
  VornCDRStreamInitialize(nullptr, bytes, 8, VORN_CDR_BIG_ENDIAN);
  VornCDRStreamInitialize(&stream, bytes, 8, VORN_CDR_BIG_ENDIAN);
  ClauseRequire("no item", VornCDR4ByteSerialize(&stream, nullptr) == 0);
  ClauseRequire("no place for an item", VornCDR4ByteDeserialize(&stream, nullptr) == 0);
  ClauseRequire("no bytes", VornCDROctetsSerialize(&stream, nullptr, 1) == 0);
  ClauseRequire("no place for bytes", VornCDROctetsDeserialize(&stream, nullptr, 1) == 0);
  ClauseRequire("no stream", VornCDR4ByteSerialize(nullptr, item) == 0);
  ClauseRequire("no stream to set", VornCDRStreamPositionSet(nullptr, 0) == 0);
  ClauseRequire("the position", VornCDRStreamPositionGet(&stream) == 0);
  ClauseRequire("the buffer", std::strcmp(bytes, "untouched") == 0);
  return true;
}

bool OctetsAreWrittenUnaligned() {
  char bytes[8] = "";
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 5, VORN_CDR_BIG_ENDIAN);
  ClauseRequire("the first three bytes", VornCDROctetsSerialize(&stream, "abc", 3) == 1);
  ClauseRequire("two that just fit", VornCDROctetsSerialize(&stream, "de", 2) == 1);
  ClauseRequire("one that does not fit", VornCDROctetsSerialize(&stream, "f", 1) == 0);
  ClauseRequire("a negative count", VornCDROctetsSerialize(&stream, "f", -1) == 0);
  ClauseRequire("none, of null", VornCDROctetsSerialize(&stream, nullptr, 0) == 1);
  ClauseRequire("the position", VornCDRStreamPositionGet(&stream) == 5);
  ClauseRequire("what was written", std::strcmp(bytes, "abcde") == 0);
  return true;
}

bool OctetsAreRead() {
  char bytes[] = "abcd", read[5] = "";
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 4, VORN_CDR_BIG_ENDIAN);
  ClauseRequire("the first three bytes", VornCDROctetsDeserialize(&stream, read, 3) == 1);
  ClauseRequire("two where one is left", VornCDROctetsDeserialize(&stream, read, 2) == 0);
  ClauseRequire("what was read until then", std::strcmp(read, "abc") == 0);
  ClauseRequire("the last byte", VornCDROctetsDeserialize(&stream, read + 3, 1) == 1);
  ClauseRequire("a negative count", VornCDROctetsDeserialize(&stream, read, -1) == 0);
  ClauseRequire("none, to null", VornCDROctetsDeserialize(&stream, nullptr, 0) == 1);
  ClauseRequire("the position", VornCDRStreamPositionGet(&stream) == 4);
  ClauseRequire("what was read", std::strcmp(read, "abcd") == 0);
  return true;
}

bool PositionIsMoved() {
  char bytes[4];
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 4, VORN_CDR_BIG_ENDIAN);
  ClauseRequire("beyond the capacity", VornCDRStreamPositionSet(&stream, 5) == 0);
  ClauseRequire("before the start", VornCDRStreamPositionSet(&stream, -1) == 0);
  ClauseRequire("to the capacity", VornCDRStreamPositionSet(&stream, 4) == 1);
  ClauseRequire("where it is then", VornCDRStreamPositionGet(&stream) == 4);
  return true;
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
      {"KelDebugPrint", "hands an empty text over as well, and nothing for a null format",
       EveryPieceIsHandedOver},
      {"KelNetioAddrInitialize", "stores address and port", AddressIsStored},
      {"KELDGram::sendTo", "asks the operations of an address, not its fields", AddressIsAsked},
      {"KELDGram::sendTo", "refuses what is no destination, and takes the greatest port",
       WrongSendIsRefused},
      {"KELDGram::optionSet", "refuses an unknown code with ENOPROTOOPT", UnknownOptionIsRefused},
      {"KELDGram::receiveFrom", "receives a datagram and its source",
       DatagramIsReceivedWithItsSource},
      {"KELDGram::receiveFrom", "tells where a datagram without bytes came from",
       EmptyDatagramIsAnswered},
      {"KELDGram::receiveFrom", "returns the length of a datagram that it cuts",
       CutDatagramHasItsLength},
      {"KELDGram::receiveFrom", "returns -1 with EAGAIN if nothing waits", NothingToReceiveIsTold},
      {"KelDGramRelease", "forgets the operations, and ignores null", ReleasedObjectIsForgotten},
      {"VornCDRStreamInitialize",
       "lays a stream; over null or a negative capacity, every operation fails", StreamIsLaid},
      {"VornCDRStreamInitialize", "null arguments are refused, by every operation of a stream",
       StreamRefusesNull},
      {"VornCDROctetsSerialize", "writes bytes without padding, or nothing",
       OctetsAreWrittenUnaligned},
      {"VornCDROctetsDeserialize", "reads bytes without padding, or nothing", OctetsAreRead},
      {"VornCDRStreamPositionSet", "moves within the capacity only", PositionIsMoved},
  };
}
