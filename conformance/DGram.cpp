// The library opens, closes and uses the socket through these operations only, with two exceptions:
// it waits for data with `select` on the descriptor, and it puts a descriptor that a program gives
// it into the socket record. Datagrams go to 127.0.0.1.

#include "Socket.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

bool StartMayBeRepeated() {
  KelNetioInit();
  KelNetioInit();
  return KelDGramNew() != nullptr;
}

bool NewHasAUDPSocket() {
  KELDGram* dgram = KelDGramNew();
  if (dgram == nullptr)
    return false;
  const int descriptor = dgram->socketGet(dgram);
  ClauseRequire("UDP", OptionGet<int>(descriptor, SOL_SOCKET, SO_TYPE) == SOCK_DGRAM);
  ClauseRequire("IPv4", NameGet(descriptor).sin_family == AF_INET);
  return true;
}

bool DeleteClosesTheSocket() {
  KELDGram* dgram = KelDGramNew();
  const int descriptor = dgram->socketGet(dgram);
  ClauseRequire("the socket before", IsOpen(descriptor));
  KelDGramDelete(dgram);
  return !IsOpen(descriptor);
}

void DescriptorsForbid() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_NOFILE, &none);
}

bool NewTellsThatThereIsNoSocket() {
  DescriptorsForbid();
  return KelDGramNew() == nullptr;
}

bool InitializeWritesOneObject() {
  Guarded<KELDGram> guarded;
  ClauseRequire("the result", KelDGramInitialize(&guarded.object) != 0);
  ClauseRequire("what is beside it", guarded.IsIntact());
  return true;
}

bool RecordBeginsWithTheDescriptor() {
  Socket socket;
  ClauseRequire("the record", socket.dgram.socketRecord != nullptr);
  ClauseRequire("an open descriptor", IsOpen(socket.DescriptorGet()));
  ClauseRequire("the record's descriptor",
                socket.dgram.socketRecord->descriptor == socket.DescriptorGet());
  return true;
}

bool InitializeTellsThatThereIsNoSocket() {
  DescriptorsForbid();
  KELDGram dgram;
  const int result = KelDGramInitialize(&dgram);
  KelDGramRelease(&dgram);
  return result == 0;
}

bool ReleaseClosesTheSocket() {
  Socket socket;
  const int descriptor = socket.DescriptorGet();
  ClauseRequire("the socket before", IsOpen(descriptor));
  KelDGramRelease(&socket.dgram);
  return !IsOpen(descriptor);
}

bool ReleasedOneIsFreed() {
  return MemoryIsGivenBack([] {
    Socket socket;
    KelDGramRelease(&socket.dgram);
  });
}

bool DeletedOneIsFreed() {
  return MemoryIsGivenBack([] { KelDGramDelete(KelDGramNew()); });
}

// The first socket after that has descriptor 0, which is one like the others.
bool ReleaseClosesDescriptorZero() {
  close(STDIN_FILENO);
  return ReleaseClosesTheSocket();
}

bool ReleaseIgnoresWhatHoldsNothing() {
  KELDGram never;
  KelDGramRelease(&never);
  Socket socket;
  KelDGramRelease(&socket.dgram);
  socket.dgram.socketRecord = nullptr;
  KelDGramRelease(&socket.dgram);
  return true;
}

// As an endpoint does with the descriptor that a program gives to its constructor.
int DescriptorExchange(Socket* socket) {
  const int other = SystemSocketGet();
  close(socket->dgram.socketRecord->descriptor);
  socket->dgram.socketRecord->descriptor = other;
  return other;
}

bool ExchangedDescriptorIsTold() {
  Socket socket;
  const int other = DescriptorExchange(&socket);
  return socket.DescriptorGet() == other;
}

bool ExchangedDescriptorIsClosed() {
  Socket socket;
  const int other = DescriptorExchange(&socket);
  KelDGramRelease(&socket.dgram);
  return !IsOpen(other);
}

bool ExchangedDescriptorIsUsed() {
  Socket socket, receiver;
  const int other = DescriptorExchange(&socket);
  const int port = receiver.Bind(LOOPBACK, 0);
  const int own = socket.Bind(LOOPBACK, 0);
  ClauseRequire("the port of bind", own == PortGet(other));
  ClauseRequire("the result", socket.Send(LOOPBACK, port, "text"));
  int from = 0;
  ClauseRequire("the datagram", Received(receiver.DescriptorGet(), &from) == "text");
  ClauseRequire("its source", from == own);
  return true;
}

bool ChosenPortIsTold() {
  Socket socket;
  PortTake(&socket, 0);
  return true;
}

// A port that was free a moment ago.
int FreePortGet() {
  const int descriptor = SystemSocketGet();
  const sockaddr_in any{AF_INET, 0, {htonl(LOOPBACK)}, {}};
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0)
    ClauseSkip("no port is free");
  const int port = PortGet(descriptor);
  close(descriptor);
  return port;
}

bool AskedPortIsTold() {
  Socket socket;
  const int port = FreePortGet();
  ClauseRequire("the result", socket.Bind(LOOPBACK, port) == port);
  ClauseRequire("the socket's port", PortGet(socket.DescriptorGet()) == port);
  return true;
}

bool AddressIsBound() {
  Socket socket;
  socket.Bind(LOOPBACK, 0);
  return NameGet(socket.DescriptorGet()).sin_addr.s_addr == htonl(LOOPBACK);
}

bool UsedPortIsNotTold() {
  Socket first, second;
  const int port = PortTake(&first, LOOPBACK);
  ClauseRequire("the result of the second bind", second.Bind(LOOPBACK, port) != port);
  return true;
}

bool DatagramsAreCarried() {
  Socket sender, receiver;
  const int port = receiver.Bind(LOOPBACK, 0);
  for (const std::size_t length : {0U, 1U, 1472U, 9216U}) {
    const std::string text(length, static_cast<char>('a' + length % 26));
    const std::string row = " of " + std::to_string(length) + " bytes";
    ClauseRequire("the result" + row, sender.Send(LOOPBACK, port, text));
    ClauseRequire("the datagram" + row, Received(receiver.DescriptorGet()) == text);
  }
  ClauseRequire("no other datagram", NoneIsReceived(receiver.DescriptorGet()));
  return true;
}

bool SendComesFromTheBoundPort() {
  Socket sender, receiver;
  const int own = sender.Bind(LOOPBACK, 0), port = receiver.Bind(LOOPBACK, 0);
  int from = 0;
  sender.Send(LOOPBACK, port, "text");
  ClauseRequire("the datagram", Received(receiver.DescriptorGet(), &from) == "text");
  ClauseRequire("its source", from == own);
  return true;
}

bool RefusedSendIsTold() {
  Socket sender, receiver;
  const int port = receiver.Bind(LOOPBACK, 0);
  return !sender.Send(LOOPBACK, port, std::string(66000, 'x'));
}

}  // namespace

Clauses DGramClauses() {
  return {
      {"KelNetioInit", "may be called again", StartMayBeRepeated},
      {"KelDGramNew", "makes an object with an open IPv4 UDP socket", NewHasAUDPSocket},
      {"KelDGramNew", "returns null if there is no socket", NewTellsThatThereIsNoSocket},
      {"KelDGramDelete", "closes the socket", DeleteClosesTheSocket},
      {"KelDGramDelete", "frees the object", DeletedOneIsFreed},
      {"KelDGramInitialize", "fills an object of six pointers, and nothing beside it",
       InitializeWritesOneObject},
      {"KelDGramInitialize",
       "puts a socket record first, whose first field is the descriptor of `socketGet`",
       RecordBeginsWithTheDescriptor},
      {"KelDGramInitialize", "returns 0 if there is no socket, and the object may be released",
       InitializeTellsThatThereIsNoSocket},
      {"KelDGramRelease", "closes the socket", ReleaseClosesTheSocket},
      {"KelDGramRelease", "frees what the object held", ReleasedOneIsFreed},
      {"KelDGramRelease", "closes the socket of a program that has closed its standard input",
       ReleaseClosesDescriptorZero},
      {"KelDGramRelease", "ignores an object that holds nothing, or nothing any more",
       ReleaseIgnoresWhatHoldsNothing},
      {"KelDGramRelease", "closes a descriptor that was put into the record",
       ExchangedDescriptorIsClosed},
      {"KELDGram::socketGet", "tells a descriptor that was put into the record",
       ExchangedDescriptorIsTold},
      {"KELDGram::bind", "with port 0 returns the port that the system chose", ChosenPortIsTold},
      {"KELDGram::bind", "returns the port that it was asked for", AskedPortIsTold},
      {"KELDGram::bind", "takes an address in host byte order", AddressIsBound},
      {"KELDGram::bind", "does not return a port that is another socket's", UsedPortIsNotTold},
      {"KELDGram::sendTo", "sends one datagram of exactly these bytes, and says so",
       DatagramsAreCarried},
      {"KELDGram::sendTo", "sends from the port that is bound", SendComesFromTheBoundPort},
      {"KELDGram::sendTo", "uses a descriptor that was put into the record",
       ExchangedDescriptorIsUsed},
      {"KELDGram::sendTo", "returns 0 for what the system refuses", RefusedSendIsTold},
  };
}
