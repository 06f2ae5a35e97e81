#ifndef NET_VORN_DGRAM_H
#define NET_VORN_DGRAM_H

#include "net/VORNMulticast.h"
#include "net/VORNNICProperties.h"
#include "net/VORNRecvMulticastGroup.h"
#include "platform/KelDGram.h"
#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

struct VORNCDRStream;

/// The process-wide interface table: `VORN_NIC_COUNT` records in the system's order, null and 0
/// while there is none. Read without a lock: it is there, unchanged but for up flags, from the
/// first `NICInitialize` to the matching last `NICDestroy`, so no endpoint may outlive it.
extern VORN_API VORNNICProperties* VORN_NIC;
extern VORN_API int VORN_NIC_COUNT;

/// A datagram endpoint, and the home of the interface table's operations.
class VORN_API VORNDGramClass {
public:
  virtual ~VORNDGramClass();
  /// 1 when the endpoint can be used, else 0.
  virtual int IsValid() const = 0;
  /// Sends the bytes of `stream` from its start to its position as one datagram.
  virtual int SendTo(KELNetioAddr* destination, VORNCDRStream* stream) = 0;

  /// Makes the interface table, or counts one more user of it. Returns 1; or 0, with nothing
  /// counted, without memory and when the count cannot grow. Holds the process lock.
  static int NICInitialize();
  /// Takes one user back; the last one frees the table. Returns 1, or 0 with a line at level > 0
  /// when there was no user left. Holds the process lock.
  static int NICDestroy();
  /// 1 when the table exists and has at least one record, else 0.
  static int NICIsValid();
  /// 1 when `address` (host byte order) is that of an interface, up or down, or 127.0.0.1; else 0.
  static int NICIsThisNodeIP(unsigned int address);
  /// 127.0.0.1 for an address of this host, any other address unchanged. Host byte order.
  static unsigned int NICHostIPMap(unsigned int address);
  /// 1 when at least one interface is multicast-capable, else 0.
  static int NICIsMulticastSupported();

  /// Users that called `NICInitialize` and not yet `NICDestroy`.
  static int NICReferenceCount;
};

/// Buffer sizes of an endpoint's socket in bytes; 0 leaves the system's size.
struct VORNDGramProperties {
  int recvBufferSize;
  int sendBufferSize;
};

/// Writes the defaults: 32768 for receiving, 9216 for sending. A null pointer is ignored.
VORN_API void VornDGramPropertiesDefaultGet(VORNDGramProperties* properties);

/// A UDP endpoint over one socket of the lower layer. One thread at a time uses it. An invalid
/// endpoint refuses everything: 0, or -1 from `HasDataWithSleep`.
class VORN_API VORNDGram : public KELDGram, public VORNDGramClass {
public:
  /// Opens a socket. A non-zero `recvMulticast` prepares for joining groups. The bits
  /// `KEL_DGRAM_OPT_SNDBUF`, `_RCVBUF` and `_BROADCAST` of `optionMask` ask for those options, in
  /// that order; the sizes are in `properties`, which may be null and is not kept. An option that
  /// fails is reported (level >= 0) and ends the setting of options, but the endpoint stays valid.
  ///
  /// A `socketDescriptor` of 0 or more is an open UDP socket that the endpoint adopts and owns from
  /// then on, in place of its own; it is not adopted by an endpoint that turns out invalid.
  VORNDGram(int recvMulticast, int optionMask, VORNDGramProperties* properties,
            int socketDescriptor);
  /// Leaves every group and closes the socket.
  ~VORNDGram() override;
  VORNDGram(const VORNDGram&) = delete;
  VORNDGram& operator=(const VORNDGram&) = delete;

  int IsValid() const override;

  /// Tells the installed network listener, then sends with one system call. Returns what the lower
  /// layer does: non-zero on success. A null `stream` is an empty datagram.
  int SendTo(KELNetioAddr* destination, VORNCDRStream* stream) override;

  /// Waits up to `timeout` for a datagram, with one system call; zero only looks. Returns more than
  /// 0 when one waits, 0 when the time ran out, -1 on error with `errno` set, for a null `timeout`,
  /// and (EINVAL) for a descriptor that is too large for a `select` set.
  virtual int HasDataWithSleep(KELNtpTime* timeout);

  /// Shares and binds `port` on all addresses, for receiving multicast. Returns `port`, or 0 with a
  /// line at level >= 0.
  int RecvMulticastInitialize(int port);
  /// Joins `group` (host byte order) on every multicast-capable interface. Returns 1, or 0 without
  /// an interface table, and at the first interface that fails (with a line at level >= 0); those
  /// before it stay joined. A group already joined there is no failure.
  int RecvMulticastAdd(unsigned int group);
  /// Leaves `group` on every multicast-capable interface, as far as it goes. Returns 1, or 0
  /// without an interface table.
  int RecvMulticastRemove(unsigned int group);
  /// Counts a join of `group`, and joins it at the first. Returns 1 when it is joined; 0, with
  /// nothing counted, when it could not be, the address is no multicast address, or the endpoint
  /// was not built for it.
  int RecvMulticastGroupJoin(unsigned int group);
  /// Takes one join back, and leaves the group at the last. Returns 1, or 0 when there was none.
  int RecvMulticastGroupLeave(unsigned int group);

  /// Prepares for sending multicast from the interface with `interfaceAddress` (host byte order).
  /// Returns 1, or 0 with a line at level >= 0 when time-to-live or interface cannot be set.
  /// Loopback that cannot be turned off is reported and no failure.
  int SendMulticastInitialize(VORNMulticastProperties* multicastProperties,
                              unsigned int interfaceAddress);

protected:
  VORNRecvMulticastGroupManager* _recvGroupManager;  ///< owned; null: not for multicast reception
};

#endif
