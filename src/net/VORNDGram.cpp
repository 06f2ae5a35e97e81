#include "net/VORNDGram.h"

#include "net/internal/SelectTime.h"
#include "net/miscIPUtils.h"
#include "platform/VornCDRStream.h"
#include "utils/internal/Diagnostics.h"

#include <atomic>
#include <cerrno>
#include <new>

#include <netinet/in.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr const char* CONSTRUCTOR_TAG = "VORNDGram::VORNDGram:";

int Refuse(int error) {
  errno = error;
  return -1;
}

int MembershipSet(KELDGram* dgram, int code, unsigned int group, unsigned int interfaceAddress) {
  ip_mreq request{};
  request.imr_multiaddr.s_addr = htonl(group);
  request.imr_interface.s_addr = htonl(interfaceAddress);
  return dgram->optionSet(dgram, code, &request, sizeof request);
}

// `error` is the system's reason, saved before anything could change it.
void JoinFailurePrint(unsigned int group, unsigned int interfaceAddress, int error) {
  char groupText[VORN_ADDRESS_TEXT_SIZE];
  char interfaceText[VORN_ADDRESS_TEXT_SIZE];
  DiagnosticPrint(Diagnostic::FAILURE, "%s unable to add multicast address %s on interface %s\n",
                  WarnPreUtilsInit, VornAddressToStringPrintable(group, groupText),
                  VornAddressToStringPrintable(interfaceAddress, interfaceText));
  DiagnosticPrint(Diagnostic::NOTE, "%s socket error %d\n", WarnPreUtilsInit, error);
}

// Returns whether the options may go on.
bool BufferSizeSet(KELDGram* dgram, int code, int size, const char* traceFormat,
                   const char* failureFormat) {
  if (size == 0)
    return true;
  DiagnosticPrint(Diagnostic::TRACE, traceFormat, CONSTRUCTOR_TAG, size);
  if (dgram->optionSet(dgram, code, &size, sizeof size) == 0)
    return true;
  DiagnosticPrint(Diagnostic::FAILURE, failureFormat, CONSTRUCTOR_TAG);
  return false;
}

void OptionsSet(KELDGram* dgram, int optionMask, const VORNDGramProperties* properties) {
  if ((optionMask & KEL_DGRAM_OPT_SNDBUF) != 0 && properties != nullptr &&
      !BufferSizeSet(dgram, KEL_DGRAM_OPT_SNDBUF, properties->sendBufferSize,
                     "%s Setting SNDBUF to %d\n", "%s setsockopt(SO_SNDBUF) failed\n"))
    return;
  if ((optionMask & KEL_DGRAM_OPT_RCVBUF) != 0 && properties != nullptr &&
      !BufferSizeSet(dgram, KEL_DGRAM_OPT_RCVBUF, properties->recvBufferSize,
                     "%s Setting RECVBUF to %d\n", "%s setsockopt(SO_RECVBUF) failed\n"))
    return;
  int one = 1;
  if ((optionMask & KEL_DGRAM_OPT_BROADCAST) != 0 &&
      dgram->optionSet(dgram, KEL_DGRAM_OPT_BROADCAST, &one, sizeof one) != 0)
    DiagnosticPrint(Diagnostic::FAILURE, "%s setsockopt(SO_BROADCAST) failed\n", CONSTRUCTOR_TAG);
}

void SocketAdopt(KELSocketRecord* record, int descriptor) {
  if (record->descriptor != -1)
    close(record->descriptor);
  record->descriptor = descriptor;
}

}  // namespace

VORNDGramClass::~VORNDGramClass() = default;

void VornDGramPropertiesDefaultGet(VORNDGramProperties* properties) {
  if (properties == nullptr)
    return;
  properties->recvBufferSize = 32768;
  properties->sendBufferSize = 9216;
}

VORNDGram::VORNDGram(int recvMulticast, int optionMask, VORNDGramProperties* properties,
                     int socketDescriptor)
    : KELDGram(), _recvGroupManager(nullptr) {
  if (recvMulticast != 0)
    _recvGroupManager = new (std::nothrow) VORNRecvMulticastGroupManager;
  const bool listed =
      recvMulticast == 0 || (_recvGroupManager != nullptr && _recvGroupManager->IsValid() != 0);
  if (!listed || KelDGramInitialize(this) == 0) {
    delete _recvGroupManager;
    _recvGroupManager = nullptr;
    KelDGramRelease(this);
    socketRecord = nullptr;
    return;
  }
  if (socketDescriptor >= 0)
    SocketAdopt(socketRecord, socketDescriptor);
  OptionsSet(this, optionMask, properties);
}

VORNDGram::~VORNDGram() {
  if (_recvGroupManager != nullptr) {
    while (_recvGroupManager->IsEmpty() == 0) {
      const unsigned int group = _recvGroupManager->HeadGet();
      // A record that a derived class put there can hold anything, and must go all the same.
      if (HostIPIsMulticastAddress(group) != 0)
        RecvMulticastGroupLeave(group);
      else
        _recvGroupManager->Remove(group);
    }
    delete _recvGroupManager;
    _recvGroupManager = nullptr;
  }
  KelDGramRelease(this);
}

int VORNDGram::IsValid() const { return socketRecord != nullptr ? 1 : 0; }

int VORNDGram::SendTo(KELNetioAddr* destination, VORNCDRStream* stream) {
  if (socketRecord == nullptr)
    return 0;
  // Read once, so that it cannot become null between the test and the call.
  VORNDiagNetworkListenerClass* listener =
      std::atomic_ref(VORN_DIAG_NETWORK_LISTENER).load(std::memory_order_acquire);
  if (listener != nullptr)
    listener->SendNotify(stream);
  const int length = VornCDRStreamPositionGet(stream);
  return sendTo(this, destination, stream != nullptr ? stream->buffer : nullptr, length);
}

int VORNDGram::HasDataWithSleep(KELNtpTime* timeout) {
  if (socketRecord == nullptr)
    return Refuse(EBADF);
  const int descriptor = socketGet(this);
  if (timeout == nullptr)
    return -1;
  // A set has room for FD_SETSIZE descriptors; a larger one would be written past its end.
  if (descriptor < 0 || descriptor >= FD_SETSIZE)
    return Refuse(EINVAL);
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(descriptor, &readable);
  const SelectTime time = SelectTimeFrom(*timeout);
  timeval wait{};
  wait.tv_sec = time.seconds;
  wait.tv_usec = static_cast<suseconds_t>(time.microseconds);
  return select(descriptor + 1, &readable, nullptr, nullptr, &wait);
}

int VORNDGram::RecvMulticastInitialize(int port) {
  if (socketRecord == nullptr)
    return 0;
  int one = 1;
  if (optionSet(this, KEL_DGRAM_OPT_REUSEADDR, &one, sizeof one) != 0) {
    DiagnosticPrint(Diagnostic::FAILURE, "%s Unable to reuse addr\n", WarnPreUtilsInit);
    return 0;
  }
  const int bound = bind(this, 0, port);
  if (bound != port) {
    DiagnosticPrint(Diagnostic::FAILURE, "%s Unable to bind to multicast port %d\n",
                    WarnPreUtilsInit, port);
    return 0;
  }
  DiagnosticPrint(Diagnostic::NOTE, "%s Multicast Port specified %d\n", WarnPreUtilsInit, port);
  return bound;
}

int VORNDGram::RecvMulticastAdd(unsigned int group) {
  if (socketRecord == nullptr || NICIsValid() == 0)
    return 0;
  for (int i = 0; i < VORN_NIC_COUNT; ++i) {
    if (!VornNicIsMulticastCapable(VORN_NIC[i]))
      continue;
    if (MembershipSet(this, KEL_DGRAM_OPT_ADD_MEMBERSHIP, group, VORN_NIC[i].address) == 0)
      continue;
    const int error = errno;
    // Two records can name one device (aliases), which the second join then finds joined.
    if (error == EADDRINUSE)
      continue;
    JoinFailurePrint(group, VORN_NIC[i].address, error);
    return 0;
  }
  return 1;
}

int VORNDGram::RecvMulticastRemove(unsigned int group) {
  if (socketRecord == nullptr || NICIsValid() == 0)
    return 0;
  for (int i = 0; i < VORN_NIC_COUNT; ++i)
    if (VornNicIsMulticastCapable(VORN_NIC[i]))
      MembershipSet(this, KEL_DGRAM_OPT_DROP_MEMBERSHIP, group, VORN_NIC[i].address);
  return 1;
}

int VORNDGram::RecvMulticastGroupJoin(unsigned int group) {
  if (_recvGroupManager == nullptr || HostIPIsMulticastAddress(group) == 0)
    return 0;
  const int joins = _recvGroupManager->Add(group);
  if (joins != 1)
    return joins >= 2 ? 1 : 0;
  if (RecvMulticastAdd(group) != 0)
    return 1;
  _recvGroupManager->Remove(group);
  return 0;
}

int VORNDGram::RecvMulticastGroupLeave(unsigned int group) {
  if (_recvGroupManager == nullptr || HostIPIsMulticastAddress(group) == 0)
    return 0;
  const int left = _recvGroupManager->Remove(group);
  if (left != 0)
    return left > 0 ? 1 : 0;
  return RecvMulticastRemove(group) != 0 ? 1 : 0;
}

int VORNDGram::SendMulticastInitialize(VORNMulticastProperties* multicastProperties,
                                       unsigned int interfaceAddress) {
  if (socketRecord == nullptr || multicastProperties == nullptr)
    return 0;
  unsigned char ttl = multicastProperties->ttl;
  if (optionSet(this, KEL_DGRAM_OPT_MULTICAST_TTL, &ttl, sizeof ttl) != 0) {
    DiagnosticPrint(Diagnostic::FAILURE, "%s could not set TTL\n", WarnPreUtilsInit);
    return 0;
  }
  unsigned char off = 0;
  if (multicastProperties->loopback == 0 &&
      optionSet(this, KEL_DGRAM_OPT_MULTICAST_LOOP, &off, sizeof off) != 0)
    DiagnosticPrint(Diagnostic::FAILURE,
                    "%s unable to turn off multicast loopback, but socket still created\n",
                    WarnPreUtilsInit);
  in_addr address{htonl(interfaceAddress)};
  if (optionSet(this, KEL_DGRAM_OPT_MULTICAST_IF, &address, sizeof address) == 0)
    return 1;
  char dotted[VORN_ADDRESS_TEXT_SIZE];
  DiagnosticPrint(Diagnostic::FAILURE, "unable to set sending interface to %s\n",
                  VornAddressToStringPrintable(interfaceAddress, dotted));
  return 0;
}
