#ifndef NET_VORN_DGRAM_H
#define NET_VORN_DGRAM_H

#include "net/VORNMulticast.h"
#include "net/VORNNICProperties.h"
#include "net/VORNRecvMulticastGroup.h"
#include "platform/KelDGram.h"
#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

struct VORNCDRStream;

/// The process-wide interface table: an array of `VORN_NIC_CAPACITY` records, of which the first
/// `VORN_NIC_COUNT` are in use, in the system's order. Null while there is no table.
///
/// It is read without a lock. From the first `NICInitialize` to the matching last `NICDestroy` it
/// does not change, but for up flags that are cleared. So no endpoint may outlive it.
extern VORN_API VORNNICProperties* VORN_NIC;
/// Records in use in `VORN_NIC`: 0 to `VORN_NIC_CAPACITY`, and 0 while there is no table.
extern VORN_API int VORN_NIC_COUNT;

/// A datagram endpoint, and the home of the interface table's operations.
///
/// The order of its virtual operations is part of what programs link against: append only.
class VORN_API VORNDGramClass {
public:
  /// Closes what the endpoint holds.
  virtual ~VORNDGramClass();
  /// 1 when the endpoint can be used, else 0.
  virtual int IsValid() const = 0;
  /// Sends the bytes of `stream` from its start to its position as one datagram to `destination`.
  /// Keeps neither. Returns non-zero on success, 0 on failure.
  virtual int SendTo(KELNetioAddr* destination, VORNCDRStream* stream) = 0;

  /// Makes the interface table, or counts one more user of it. Returns 1. Returns 0, with nothing
  /// counted, when there is no memory or the count cannot grow. Holds the process lock.
  static int NICInitialize();
  /// Counts one user less. The last one frees the table. Returns 1; or 0, with a line at level > 0,
  /// when there was no user left. Holds the process lock.
  static int NICDestroy();
  /// 1 when the table exists and has at least one record, else 0.
  static int NICIsValid();
  /// 1 when `address` (host byte order) is 127.0.0.1 or that of an interface, up or down; else 0.
  static int NICIsThisNodeIP(unsigned int address);
  /// 127.0.0.1 for an address of this host, any other address unchanged. Host byte order.
  static unsigned int NICHostIPMap(unsigned int address);
  /// 1 when at least one interface is multicast-capable, else 0.
  static int NICIsMulticastSupported();

  /// How often `NICInitialize` succeeded without a `NICDestroy` yet. Written under the process
  /// lock.
  static int NICReferenceCount;
};

/// Buffer sizes of an endpoint's socket in bytes; 0 leaves the system's size. The order of its
/// fields is part of what programs link against, and so is its size.
struct VORNDGramProperties {
  int recvBufferSize;  ///< for datagrams that wait to be received
  int sendBufferSize;  ///< for datagrams that wait to be sent
};

/// Writes the defaults: 32768 for receiving, 9216 for sending. A null pointer is ignored.
VORN_API void VornDGramPropertiesDefaultGet(VORNDGramProperties* properties);

/// A UDP endpoint over one socket of the lower layer. One thread at a time uses it. An invalid
/// endpoint refuses everything: 0, or -1 from `HasDataWithSleep`.
///
/// The order of its virtual operations and fields is part of what programs link against: append
/// only.
class VORN_API VORNDGram : public KELDGram, public VORNDGramClass {
public:
  /// Opens a socket. Test `IsValid`. A non-zero `recvMulticast` prepares for joining groups.
  ///
  /// The bits `KEL_DGRAM_OPT_SNDBUF`, `_RCVBUF` and `_BROADCAST` of `optionMask` ask for those
  /// options, which are set in that order. The buffer sizes are in `properties`, which may be null
  /// and is not kept. The first option that fails is reported (level >= 0), and those after it are
  /// not set; the endpoint stays valid.
  ///
  /// A `socketDescriptor` of 0 or more is an open UDP socket. The endpoint adopts it in place of
  /// its own and closes it at the end. An endpoint that turns out invalid does not adopt it.
  VORNDGram(int recvMulticast, int optionMask, VORNDGramProperties* properties,
            int socketDescriptor);
  /// Leaves every group and closes the socket.
  ~VORNDGram() override;
  VORNDGram(const VORNDGram&) = delete;
  VORNDGram& operator=(const VORNDGram&) = delete;

  /// 1 when the endpoint holds a socket, else 0.
  int IsValid() const override;

  /// Tells the installed network listener, then sends with one system call. Returns what the lower
  /// layer does: non-zero on success. A null `stream` is an empty datagram.
  int SendTo(KELNetioAddr* destination, VORNCDRStream* stream) override;

  /// Waits up to `timeout` for a datagram, with one system call; a time of zero only looks. Returns
  /// more than 0 when a datagram is there, and 0 when the time ran out. Returns -1 on error, with
  /// `errno` set; also for a descriptor that is too large for a `select` set (EINVAL), and for a
  /// null `timeout` (`errno` unchanged).
  virtual int HasDataWithSleep(KELNtpTime* timeout);

  /// Shares and binds `port` on all addresses, for receiving multicast. Returns `port`, or 0 with a
  /// line at level >= 0. Port 0 is refused: the port that the system chooses is another one.
  int RecvMulticastInitialize(int port);
  /// Joins `group` (host byte order) on every multicast-capable interface. Returns 1; a group that
  /// is already joined there is no failure. Returns 0 without an interface table, and at the first
  /// interface that fails, with a line at level >= 0: the interfaces before it stay joined, those
  /// after it are not tried.
  ///
  /// Linux allows a socket 20 memberships (`net.ipv4.igmp_max_memberships`), and a group counts
  /// once for each interface. With three interfaces the seventh group is refused (ENOBUFS).
  int RecvMulticastAdd(unsigned int group);
  /// Leaves `group` on every multicast-capable interface; an interface that fails is passed over.
  /// Returns 1, or 0 without an interface table.
  int RecvMulticastRemove(unsigned int group);
  /// Counts a join of `group`, and joins it at the first. Returns 1 when it is joined. Returns 0,
  /// with nothing counted, when it cannot be joined, when the address is no multicast address, and
  /// when the endpoint was not built for it.
  ///
  /// After a join that failed on some interface, the interfaces before that one stay joined and
  /// datagrams can arrive; `RecvMulticastRemove` leaves them. See `RecvMulticastAdd` for the limit
  /// of the system.
  int RecvMulticastGroupJoin(unsigned int group);
  /// Counts one join of `group` less, and leaves the group at the last. Returns 1, or 0 when there
  /// was none.
  int RecvMulticastGroupLeave(unsigned int group);

  /// Prepares for sending multicast from the interface with `interfaceAddress` (host byte order).
  /// Returns 1, or 0 with a line at level >= 0 when the time-to-live or the interface cannot be
  /// set. When loopback cannot be turned off, that is reported and is no failure.
  int SendMulticastInitialize(VORNMulticastProperties* multicastProperties,
                              unsigned int interfaceAddress);

protected:
  VORNRecvMulticastGroupManager* _recvGroupManager;  ///< owned; null: not for multicast reception
};

#endif
