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
  VORNCDRStream stream, without;
  VornCDRStreamInitialize(&stream, bytes, 8, VORN_CDR_LITTLE_ENDIAN);
  VornCDRStreamInitialize(&without, nullptr, 8, VORN_CDR_LITTLE_ENDIAN);
  ClauseRequire("over a buffer", VornCDR4ByteSerialize(&stream, "abcd") == 1);
  ClauseRequire("over null", VornCDR4ByteSerialize(&without, "abcd") == 0);
  return true;
}

bool OctetsAreWrittenUnaligned() {
  char bytes[8] = "";
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, 5, VORN_CDR_BIG_ENDIAN);
  ClauseRequire("the first three bytes", VornCDROctetsSerialize(&stream, "abc", 3) == 1);
  ClauseRequire("two that just fit", VornCDROctetsSerialize(&stream, "de", 2) == 1);
  ClauseRequire("one that does not fit", VornCDROctetsSerialize(&stream, "f", 1) == 0);
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
  };
}
