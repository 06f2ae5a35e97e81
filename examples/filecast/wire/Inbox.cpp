#include "wire/Inbox.h"

#include <utility>

namespace {

constexpr int DATAGRAMS_AT_ONCE = 64;

}  // namespace

Inbox::Inbox(VORNDGram* endpoint, PeerList* peers, LossGenerator* loss, Handler handler)
    : _endpoint(endpoint), _peers(peers), _loss(loss), _handler(std::move(handler)), _buffer() {}

int Inbox::DatagramsRead() {
  for (int i = 0; i < DATAGRAMS_AT_ONCE; ++i) {
    KELNetioAddr from;
    const int length = _endpoint->receiveFrom(_endpoint, &from, _buffer, sizeof _buffer);
    if (length < 0)
      return i;
    const AddressPort source{from.addressGet(&from), from.portGet(&from)};
    if (!_peers->Admits(source.address)) {
      ++_counts.refused;
    } else if (_loss != nullptr && _loss->LosesNext()) {
      ++_counts.dropped;
    } else {
      const Verdict verdict = DatagramHandle(length, source);
      ++(verdict == Verdict::TAKEN     ? _counts.taken
         : verdict == Verdict::FOREIGN ? _counts.foreign
                                       : _counts.garbled);
    }
  }
  return DATAGRAMS_AT_ONCE;
}

Inbox::Verdict Inbox::DatagramHandle(int length, const AddressPort& source) {
  // A longer one was cut off by the buffer.
  if (length > DATAGRAM_CAPACITY)
    return Verdict::GARBLED;
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, length, VORN_CDR_BIG_ENDIAN);
  Header header;
  return HeaderRead(&stream, &header) ? _handler(&stream, header, source) : Verdict::GARBLED;
}
