#include "vorndiag/McastEndpoints.h"

#include "platform/VornCDRStream.h"
#include "time/VORNNtpTime.h"
#include "vorndiag/McastLook.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace {

constexpr int MESSAGE_SIZE = 512;

VORNMulticastProperties PropertiesMake(int timeToLive, bool loopback) {
  VORNMulticastProperties properties{};
  VornMulticastPropertiesDefaultGet(&properties);
  properties.enable = 1;
  properties.ttl = static_cast<unsigned char>(timeToLive);
  properties.loopback = loopback ? 1 : 0;
  return properties;
}

void ControlRead(msghdr* message, McastArrival* arrival) {
  for (cmsghdr* control = CMSG_FIRSTHDR(message); control != nullptr;
       control = CMSG_NXTHDR(message, control)) {
    if (control->cmsg_level != IPPROTO_IP)
      continue;
    in_pktinfo info{};
    if (control->cmsg_type == IP_TTL)
      std::memcpy(&arrival->timeToLive, CMSG_DATA(control), sizeof arrival->timeToLive);
    if (control->cmsg_type == IP_PKTINFO) {
      std::memcpy(&info, CMSG_DATA(control), sizeof info);
      arrival->interfaceIndex = info.ipi_ifindex;
    }
  }
}

// What waits on the socket; none for something else than a probe.
std::optional<McastArrival> ArrivalReceive(int descriptor) {
  char bytes[MESSAGE_SIZE];
  alignas(cmsghdr) char control[256];
  sockaddr_in source{};
  iovec part{bytes, sizeof bytes};
  msghdr message{};
  message.msg_name = &source;
  message.msg_namelen = sizeof source;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t length = recvmsg(descriptor, &message, MSG_DONTWAIT);
  if (length < 0)
    return std::nullopt;
  const std::optional<McastProbe> probe = McastProbeGet({bytes, bytes + length});
  if (!probe)
    return std::nullopt;
  McastArrival arrival;
  arrival.probe = *probe;
  arrival.source = ntohl(source.sin_addr.s_addr);
  ControlRead(&message, &arrival);
  return arrival;
}

}  // namespace

McastReceiver::McastReceiver(unsigned int group, int port) : _dgram(1, 0, nullptr, -1) {
  if (_dgram.RecvMulticastInitialize(port) == 0) {
    _portError = McastPortErrorGet(port);
    return;
  }
  _port = port;
  _isJoined = _dgram.RecvMulticastGroupJoin(group) != 0;
  ArrivalsTell();
}

McastReceiver::McastReceiver() : _dgram(0, 0, nullptr, -1) {
  if (_dgram.IsValid() != 0)
    _port = _dgram.bind(&_dgram, 0, 0);
}

void McastReceiver::ArrivalsTell() {
  const int descriptor = _dgram.socketGet(&_dgram);
  const int one = 1;
  setsockopt(descriptor, IPPROTO_IP, IP_RECVTTL, &one, sizeof one);
  setsockopt(descriptor, IPPROTO_IP, IP_PKTINFO, &one, sizeof one);
}

std::optional<McastArrival> McastReceiver::Next(double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (_port != 0) {
    const std::chrono::duration<double> left = end - std::chrono::steady_clock::now();
    KELNtpTime wait = VORNNtpTime::FromSeconds(std::max(left.count(), 0.0)).KelTimeGet();
    if (_dgram.HasDataWithSleep(&wait) <= 0)
      return std::nullopt;
    if (std::optional<McastArrival> arrival = ArrivalReceive(_dgram.socketGet(&_dgram)))
      return arrival;
    if (left.count() <= 0)
      return std::nullopt;
  }
  return std::nullopt;
}

McastSender::McastSender(unsigned int group, int port, int timeToLive, bool loopback)
    : _properties(PropertiesMake(timeToLive, loopback)), _group(group), _port(port),
      _dgram(&_properties, 0, nullptr, -1) {}

bool McastSender::BytesSend(const McastProbe& probe, unsigned int address, int port) {
  std::vector<char> bytes = McastProbeBytesGet(probe);
  const int length = static_cast<int>(bytes.size());
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes.data(), length, length};
  KELNetioAddr destination;
  KelNetioAddrInitialize(&destination, address, port);
  return _dgram.SendTo(&destination, &stream) != 0;
}

int McastSender::Send(const McastProbe& probe) {
  errno = 0;
  if (BytesSend(probe, _group, _port))
    return 0;
  return errno != 0 ? errno : ENODEV;
}

// An answer that is lost is one that the asker counts as lost.
void McastSender::Answer(const McastProbe& probe, unsigned int address, int port) {
  static_cast<void>(BytesSend(probe, address, port));
}
