#include "transports.h"

#include "floors.h"
#include "ipc/ShmMsgQManager.h"
#include "ipc/VORNShmMsgQ.h"

#include <boost/interprocess/ipc/message_queue.hpp>

#include <fcntl.h>
#include <mqueue.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int OBJECT_QUEUE = 74, MANAGER_QUEUE = 75;

[[noreturn]] void LeaveOut(const char* what) {
  throw Unavailable(std::string(what) + ": " + std::strerror(errno));
}

int Sent(bool isSent, const char* call) {
  if (!isSent)
    SystemFail(call);
  return 1;
}

class LibraryQueue : public Transport {
public:
  LibraryQueue(int length, int room)
      : Transport(length), _queue(1, OBJECT_QUEUE, static_cast<unsigned int>(room)) {
    if (_queue.IsValid() == 0)
      SystemFail("the library's queue");
  }
  ~LibraryQueue() override { _queue.Destroy(); }
  bool Send(int length) override { return _queue.Send(Out(), length) != 0; }
  int Receive(int length) override { return _queue.Recv(In(), length); }

private:
  ShmMsgQImpl _queue;
};

class ManagedQueue : public Transport {
public:
  ManagedQueue(int length, int room) : Transport(length) {
    ShmMsgQManager::Initialize();
    _queue = ShmMsgQManager::New(MANAGER_QUEUE, static_cast<unsigned int>(room));
    if (_queue == nullptr)
      SystemFail("the manager's queue");
  }
  ~ManagedQueue() override {
    ShmMsgQManager::ReleaseAll();
    ShmMsgQManager::Destroy();
  }
  bool Send(int length) override { return ShmMsgQManager::Send(MANAGER_QUEUE, Out(), length) != 0; }
  int Receive(int length) override { return _queue->Recv(In(), length); }

private:
  ShmMsgQ* _queue;
};

class FloorQueue : public Transport {
public:
  FloorQueue(int length, int room) : Transport(length), _queue(room) {}
  bool Send(int length) override { return _queue.Send(Out(), length); }
  int Receive(int) override { return _queue.Receive(In()); }

private:
  floors::RingQueue _queue;
};

class SystemVQueue final : public Transport {
public:
  SystemVQueue(int length, int room)
      : Transport(length), _queue(msgget(IPC_PRIVATE, IPC_CREAT | 0600)) {
    msqid_ds state{};
    msgctl(_queue, IPC_STAT, &state);
    state.msg_qbytes = static_cast<msglen_t>(room);
    const bool isLarge = msgctl(_queue, IPC_SET, &state) == 0;
    // Tried here, where a message that is too long can still be left out.
    if (!isLarge ||
        msgsnd(_queue, Typed(Out()), static_cast<std::size_t>(length), IPC_NOWAIT) != 0) {
      const int error = errno;
      msgctl(_queue, IPC_RMID, nullptr);
      errno = error;
      LeaveOut("msgsnd");
    }
    Receive(length);
  }
  ~SystemVQueue() override { msgctl(_queue, IPC_RMID, nullptr); }
  bool Send(int length) override {
    return Sent(msgsnd(_queue, Typed(Out()), static_cast<std::size_t>(length), 0) == 0, "msgsnd");
  }
  int Receive(int length) override {
    return static_cast<int>(msgrcv(_queue, Typed(In()), static_cast<std::size_t>(length), 0, 0));
  }

private:
  // The message with its type, which stands in front of the bytes.
  static char* Typed(char* bytes) {
    const long type = 1;
    std::memcpy(bytes - sizeof type, &type, sizeof type);
    return bytes - sizeof type;
  }

  int _queue;
};

class PosixQueue : public Transport {
public:
  PosixQueue(int length, int room) : Transport(length) {
    const std::string name = "/vorn-bench-" + std::to_string(getpid());
    mq_attr attributes{};
    attributes.mq_maxmsg = std::clamp(room / length, 2, 64);
    attributes.mq_msgsize = length;
    _queue = mq_open(name.c_str(), O_CREAT | O_RDWR, 0600, &attributes);
    if (_queue < 0)
      LeaveOut("mq_open");
    mq_unlink(name.c_str());
  }
  ~PosixQueue() override { mq_close(_queue); }
  bool Send(int length) override {
    return Sent(mq_send(_queue, Out(), static_cast<std::size_t>(length), 0) == 0, "mq_send");
  }
  int Receive(int length) override {
    return static_cast<int>(mq_receive(_queue, In(), static_cast<std::size_t>(length), nullptr));
  }

private:
  mqd_t _queue;
};

// Two descriptors: what is written to the second is read from the first.
class Descriptors : public Transport {
public:
  using Transport::Transport;
  ~Descriptors() override {
    close(_ends[0]);
    close(_ends[1]);
  }
  bool Send(int length) override {
    return Sent(write(_ends[1], Out(), static_cast<std::size_t>(length)) == length, "write");
  }
  int Receive(int length) override {
    int taken = 0;
    // A pipe has no boundaries, and gives long messages in pieces.
    while (taken < length) {
      const auto count = read(_ends[0], In() + taken, static_cast<std::size_t>(length - taken));
      if (count <= 0)
        SystemFail("read");
      taken += static_cast<int>(count);
    }
    return taken;
  }

protected:
  // Where the host's limit is lower, a long message does not fit, and its variant is left out.
  void RoomMake(int length) {
    const int room = 2 * length + 65536;
    if (setsockopt(_ends[1], SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0)
      setsockopt(_ends[1], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const auto size = static_cast<std::size_t>(length);
    if (send(_ends[1], Out(), size, MSG_DONTWAIT) != length)
      LeaveOut("send");
    if (recv(_ends[0], In(), size, 0) != length)
      SystemFail("recv");
  }
  int _ends[2] = {-1, -1};
};

class Pipe : public Descriptors {
public:
  Pipe(int length, int) : Descriptors(length) {
    if (pipe(_ends) != 0)
      LeaveOut("pipe");
    if (length > 65536 && fcntl(_ends[1], F_SETPIPE_SZ, length) < length)
      LeaveOut("F_SETPIPE_SZ");
  }
};

class SocketPair : public Descriptors {
public:
  SocketPair(int length, int) : Descriptors(length) {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, _ends) != 0)
      LeaveOut("socketpair");
    RoomMake(length);
  }
};

// A socket with a name that only this process knows, and one that is connected to it.
class UnixDatagrams : public Descriptors {
public:
  UnixDatagrams(int length, int) : Descriptors(length) {
    sockaddr_un_storage name{};
    socklen_t size = sizeof name;
    _ends[0] = socket(AF_UNIX, SOCK_DGRAM, 0);
    _ends[1] = socket(AF_UNIX, SOCK_DGRAM, 0);
    auto* address = reinterpret_cast<sockaddr*>(&name);
    address->sa_family = AF_UNIX;
    // An address without a name lets the system choose one.
    if (bind(_ends[0], address, sizeof address->sa_family) != 0 ||
        getsockname(_ends[0], address, &size) != 0 || connect(_ends[1], address, size) != 0)
      LeaveOut("Unix datagrams");
    RoomMake(length);
  }

private:
  using sockaddr_un_storage = sockaddr_storage;
};

namespace interprocess = boost::interprocess;

class BoostQueue : public Transport {
public:
  BoostQueue(int length, int room)
      : Transport(length), _queue(interprocess::create_only, NameGet().c_str(),
                                  static_cast<std::size_t>(std::max(room / length, 2)),
                                  static_cast<std::size_t>(length)) {
    interprocess::message_queue::remove(NameGet().c_str());
  }
  bool Send(int length) override {
    _queue.send(Out(), static_cast<std::size_t>(length), 0);
    return true;
  }
  int Receive(int length) override {
    std::size_t taken = 0;
    unsigned int priority = 0;
    _queue.receive(In(), static_cast<std::size_t>(length), taken, priority);
    return static_cast<int>(taken);
  }

private:
  static std::string NameGet() { return "vorn-bench-" + std::to_string(getpid()); }
  interprocess::message_queue _queue;
};

template <typename Kind> std::unique_ptr<Transport> Make(int length, int room) {
  return std::make_unique<Kind>(length, room);
}

}  // namespace

const std::vector<TransportKind>& TransportKinds() {
  static const std::vector<TransportKind> kinds = {
      {"library", Role::LIBRARY, Make<LibraryQueue>},
      {"floor", Role::FLOOR, Make<FloorQueue>},
      {"through the manager", Role::PEER, Make<ManagedQueue>},
      {"System V queue", Role::PEER, Make<SystemVQueue>},
      {"POSIX queue", Role::PEER, Make<PosixQueue>},
      {"Unix datagrams", Role::PEER, Make<UnixDatagrams>},
      {"socket pair", Role::PEER, Make<SocketPair>},
      {"pipe", Role::PEER, Make<Pipe>},
      {"Boost queue", Role::PEER, Make<BoostQueue>},
  };
  return kinds;
}
