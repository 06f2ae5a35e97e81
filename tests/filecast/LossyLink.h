#ifndef FILECAST_LOSSY_LINK_H
#define FILECAST_LOSSY_LINK_H

#include "Datagram.h"
#include "ReceiverLogic.h"
#include "SenderLogic.h"

#include <random>
#include <string>
#include <utility>
#include <vector>

// A stream over the bytes of a datagram, for reading.
inline VORNCDRStream StreamOver(std::string* bytes) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes->data(), static_cast<int>(bytes->size()),
                          VORN_CDR_BIG_ENDIAN);
  return stream;
}

// The bytes that `write(&stream)` writes.
template <typename Write> std::string Written(Write write) {
  std::string bytes(DATAGRAM_CAPACITY, '\0');
  VORNCDRStream stream = StreamOver(&bytes);
  return write(&stream) ? bytes.substr(0, static_cast<std::size_t>(stream.position)) : "";
}

// A link that loses, repeats and reorders what it carries.
class LossyLink {
public:
  explicit LossyLink(unsigned int seed) : _random(seed) {}

  void Send(const std::string& datagram) {
    for (auto copies = _random() % 20; copies > 0; copies /= 19)  // 5 % none, 5 % two
      _onTheWay.push_back(datagram);
    if (_onTheWay.size() > 1 && _random() % 4 == 0)
      std::swap(_onTheWay.back(), _onTheWay[_random() % _onTheWay.size()]);
  }
  std::vector<std::string> Arrive() { return std::exchange(_onTheWay, {}); }

private:
  std::mt19937 _random;
  std::vector<std::string> _onTheWay;
};

#endif
