#ifndef NET_VORN_DGRAM_MULTICAST_H
#define NET_VORN_DGRAM_MULTICAST_H

#include "net/VORNDGram.h"

/// A sending endpoint that sends a multicast datagram from every multicast-capable interface that
/// is up, and any other datagram once. The interfaces are chosen at construction. One whose up flag
/// is cleared later stops sending and keeps its socket. One thread at a time uses the endpoint.
///
/// The order of its virtual operations and fields is part of what programs link against: append
/// only.
class VORN_API VORNDGramMulticast : public VORNDGramClass {
public:
  /// When `enable` is set and there is a multicast-capable interface: one endpoint for each such
  /// interface, on a port that the system chooses, with the time-to-live and loopback of
  /// `multicastProperties`. Otherwise: one ordinary endpoint, without multicast settings.
  ///
  /// `optionMask` and `properties` go to each endpoint. A `socketDescriptor` of 0 or more is
  /// adopted when there is just one endpoint, and is left to the caller when there are more. An
  /// adopted descriptor is closed with its endpoint, also when construction fails after that.
  /// Nothing is kept of the other arguments.
  ///
  /// Test `IsValid`. The object is invalid and holds nothing when `multicastProperties` is null, or
  /// there is no interface table or no memory, or an endpoint cannot be made or set up.
  VORNDGramMulticast(VORNMulticastProperties* multicastProperties, int optionMask,
                     VORNDGramProperties* properties, int socketDescriptor);
  /// Closes every endpoint.
  ~VORNDGramMulticast() override;
  VORNDGramMulticast(const VORNDGramMulticast&) = delete;
  VORNDGramMulticast& operator=(const VORNDGramMulticast&) = delete;

  /// 1 when the endpoints were made, else 0.
  int IsValid() const override;

  /// To a multicast address: sends from each interface that is up, in table order, with one system
  /// call each, and stops at the first failure. Returns 1 when every send that was made succeeded
  /// (also when no interface is up), else 0.
  ///
  /// To any other address: sends through the first endpoint and returns its result.
  ///
  /// Returns 0 for a null argument, for an invalid object and without an interface table.
  int SendTo(KELNetioAddr* destination, VORNCDRStream* stream) override;

protected:
  VORNDGram** _dgrams;  ///< `_dgramCount` owned endpoints; null: invalid
  int* _nicIndex;       ///< parallel to `_dgrams`: the record of the interface table
  int _dgramCount;      ///< 0 while invalid

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
