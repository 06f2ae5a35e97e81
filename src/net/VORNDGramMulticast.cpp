#include "net/VORNDGramMulticast.h"

#include "net/miscIPUtils.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

int CapableInterfacesCount() {
  int count = 0;
  for (int i = 0; i < VORN_NIC_COUNT; ++i)
    count += VornNicIsMulticastCapable(VORN_NIC[i]) ? 1 : 0;
  return count;
}

// The record of the first multicast-capable interface at or after `from`.
int CapableInterfaceNext(int from) {
  while (from < VORN_NIC_COUNT && !VornNicIsMulticastCapable(VORN_NIC[from]))
    ++from;
  return from;
}

template <typename Element> Element* ArrayNew(int count) {
  return static_cast<Element*>(std::calloc(static_cast<std::size_t>(count), sizeof(Element)));
}

// Binds an endpoint to a port of the system's choice, which goes to `port` unless it holds one.
void EndpointBind(VORNDGram* dgram, int* port) {
  const int bound = dgram->bind(dgram, 0, 0);
  if (*port == 0)
    *port = bound;
}

bool InterfaceIsUp(int index) {
  return index < VORN_NIC_COUNT && (VORN_NIC[index].flags & NIC_UP) != 0;
}

}  // namespace

VORNDGramMulticast::VORNDGramMulticast(VORNMulticastProperties* multicastProperties, int optionMask,
                                       VORNDGramProperties* properties, int socketDescriptor)
    : _dgrams(nullptr), _nicIndex(nullptr), _dgramCount(0), _port(0) {
  if (multicastProperties == nullptr || NICIsValid() == 0)
    return;
  const int capable = multicastProperties->enable != 0 ? CapableInterfacesCount() : 0;
  const int count = capable > 0 ? capable : 1;
  _nicIndex = ArrayNew<int>(count);
  if (_nicIndex == nullptr)
    return;
  _dgrams = ArrayNew<VORNDGram*>(count);
  if (_dgrams == nullptr)
    return;
  const int descriptor = count == 1 ? socketDescriptor : -1;
  const bool made = capable > 0 ? InterfaceEndpointsMake(count, multicastProperties, optionMask,
                                                         properties, descriptor)
                                : OrdinaryEndpointMake(optionMask, properties, descriptor);
  if (made)
    _dgramCount = count;
  else
    EndpointsDelete(count);
}

VORNDGramMulticast::~VORNDGramMulticast() {
  EndpointsDelete(_dgramCount);
  std::free(_nicIndex);
  _nicIndex = nullptr;
}

bool VORNDGramMulticast::InterfaceEndpointsMake(int count,
                                                VORNMulticastProperties* multicastProperties,
                                                int optionMask, VORNDGramProperties* properties,
                                                int socketDescriptor) {
  int nic = CapableInterfaceNext(0);
  for (int k = 0; k < count; ++k, nic = CapableInterfaceNext(nic + 1)) {
    // The up flag can be cleared between the count and this walk.
    if (nic >= VORN_NIC_COUNT)
      return false;
    VORNDGram* dgram = _dgrams[k] =
        new (std::nothrow) VORNDGram(0, optionMask, properties, socketDescriptor);
    if (dgram == nullptr || dgram->IsValid() == 0)
      return false;
    EndpointBind(dgram, &_port);
    if (dgram->SendMulticastInitialize(multicastProperties, VORN_NIC[nic].address) == 0)
      return false;
    _nicIndex[k] = nic;
  }
  return true;
}

bool VORNDGramMulticast::OrdinaryEndpointMake(int optionMask, VORNDGramProperties* properties,
                                              int socketDescriptor) {
  _dgrams[0] = new (std::nothrow) VORNDGram(0, optionMask, properties, socketDescriptor);
  if (_dgrams[0] == nullptr || _dgrams[0]->IsValid() == 0)
    return false;
  EndpointBind(_dgrams[0], &_port);
  return true;
}

void VORNDGramMulticast::EndpointsDelete(int count) {
  for (int k = 0; _dgrams != nullptr && k < count; ++k)
    delete _dgrams[k];
  std::free(_dgrams);
  _dgrams = nullptr;
}

int VORNDGramMulticast::IsValid() const { return _dgrams != nullptr ? 1 : 0; }

int VORNDGramMulticast::SendTo(KELNetioAddr* destination, VORNCDRStream* stream) {
  if (destination == nullptr || stream == nullptr || NICIsValid() == 0 || _dgrams == nullptr)
    return 0;
  if (HostIPIsMulticastAddress(destination->addressGet(destination)) == 0)
    return _dgrams[0]->SendTo(destination, stream);
  for (int k = 0; k < _dgramCount; ++k)
    if (InterfaceIsUp(_nicIndex[k]) && _dgrams[k]->SendTo(destination, stream) == 0)
      return 0;
  return 1;
}
