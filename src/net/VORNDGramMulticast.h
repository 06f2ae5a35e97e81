#ifndef NET_VORN_DGRAM_MULTICAST_H
#define NET_VORN_DGRAM_MULTICAST_H

#include "net/VORNDGram.h"

/// A sending endpoint that puts a multicast datagram out on every multicast-capable interface that
/// is up, and any other datagram out once. Which interfaces there are is settled at construction;
/// one whose up flag is cleared later stops sending and keeps its socket. One thread at a time uses
/// it.
class VORN_API VORNDGramMulticast : public VORNDGramClass {
public:
  /// With `enable` set and at least one multicast-capable interface: an endpoint per such
  /// interface, each on a port of the system's choice, with the time-to-live and loopback asked
  /// for. Else one ordinary endpoint, without multicast settings. `optionMask` and `properties` go
  /// to each endpoint; `socketDescriptor` is adopted when there is just one, and otherwise left to
  /// the caller; an adopted descriptor is closed with its endpoint, also when construction fails
  /// afterwards. Nothing is kept of the other arguments.
  ///
  /// Test `IsValid`: without properties or interface table, memory, or a setting that an endpoint
  /// needs, nothing is held.
  VORNDGramMulticast(VORNMulticastProperties* multicastProperties, int optionMask,
                     VORNDGramProperties* properties, int socketDescriptor);
  ~VORNDGramMulticast() override;
  VORNDGramMulticast(const VORNDGramMulticast&) = delete;
  VORNDGramMulticast& operator=(const VORNDGramMulticast&) = delete;

  int IsValid() const override;

  /// To a multicast address: sends from each interface that is up, in table order, one system call
  /// each, and stops at the first failure. Returns 1 when every send made succeeded, else 0. To any
  /// other address: the first endpoint's result. 0 for a null argument, an invalid object or
  /// without an interface table.
  int SendTo(KELNetioAddr* destination, VORNCDRStream* stream) override;

protected:
  VORNDGram** _dgrams;  ///< `_dgramCount` owned endpoints; null: invalid
  int* _nicIndex;       ///< parallel to `_dgrams`: the record of the interface table
  int _dgramCount;

public:
  int _port;  ///< local port of the first endpoint, host byte order; for the users of the class

private:
  // Both return whether all endpoints are ready. What was made so far is in `_dgrams` either way.
  VORN_LOCAL bool InterfaceEndpointsMake(int count, VORNMulticastProperties* multicastProperties,
                                         int optionMask, VORNDGramProperties* properties,
                                         int socketDescriptor);
  VORN_LOCAL bool OrdinaryEndpointMake(int optionMask, VORNDGramProperties* properties,
                                       int socketDescriptor);
  // Deletes the first `count` slots and the array.
  VORN_LOCAL void EndpointsDelete(int count);
};

#endif
