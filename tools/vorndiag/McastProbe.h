#ifndef VORNDIAG_MCAST_PROBE_H
#define VORNDIAG_MCAST_PROBE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The datagrams by which hosts find out whether groups work between them: 4-byte items in the
/// order of the fields, most significant byte first, and then the name, 64 bytes filled with zeros.
/// A receiver gets a probe through a group and answers to the sender alone.
struct McastProbe {
  enum Kind : std::int32_t { PROBE = 1, ANSWER = 2 };

  static constexpr std::size_t NAME_SIZE = 64;
  static constexpr int COUNT_MAX = 10000;

  std::int32_t kind = PROBE;
  std::uint32_t run = 0;        ///< the same in all datagrams of one test, and in their answers
  std::int32_t number = 0;      ///< from 0 on
  std::int32_t count = 0;       ///< how many are sent in all, at most `COUNT_MAX`
  std::int32_t answerPort = 0;  ///< of a probe: where it is answered to; 0: nowhere
  std::uint32_t sender = 0;     ///< of an answer: the address from which the probe came
  std::uint32_t receiver = 0;   ///< of an answer: that of the interface on which it came
  std::int32_t timeToLive = 0;  ///< of an answer: what was left of it; -1: not known
  std::string host;             ///< of an answer: the receiver's name
};

/// The bytes of a probe; a name that is too long is cut.
std::vector<char> McastProbeBytesGet(const McastProbe& probe);

/// The probe in `bytes`, or none: anybody may send anything to a group.
std::optional<McastProbe> McastProbeGet(std::vector<char> bytes);

#endif
