#include "vorndiag/McastProbe.h"

#include "platform/VornCDRStream.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr std::uint32_t MAGIC = 0x564E4447;
constexpr std::size_t WORDS = 9;
constexpr std::size_t SIZE = WORDS * 4 + McastProbe::NAME_SIZE;
constexpr int PORT_MAX = 65535;

std::string NameGet(const char* bytes) {
  std::string name(bytes, McastProbe::NAME_SIZE);
  name.resize(std::min(name.find('\0'), name.size()));
  // It is printed on a terminal.
  std::replace_if(
      name.begin(), name.end(), [](unsigned char byte) { return std::isgraph(byte) == 0; }, '?');
  return name;
}

bool IsSound(const McastProbe& probe) {
  return (probe.kind == McastProbe::PROBE || probe.kind == McastProbe::ANSWER) && probe.count > 0 &&
         probe.count <= McastProbe::COUNT_MAX && probe.number >= 0 && probe.number < probe.count &&
         probe.answerPort >= 0 && probe.answerPort <= PORT_MAX;
}

}  // namespace

std::vector<char> McastProbeBytesGet(const McastProbe& probe) {
  std::vector<char> bytes(SIZE);
  std::string name = probe.host;
  name.resize(McastProbe::NAME_SIZE);
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes.data(), static_cast<int>(SIZE), VORN_CDR_BIG_ENDIAN);
  const void* const items[WORDS] = {&MAGIC,        &probe.kind,     &probe.run,
                                    &probe.number, &probe.count,    &probe.answerPort,
                                    &probe.sender, &probe.receiver, &probe.timeToLive};
  for (const void* item : items)
    VornCDR4ByteSerialize(&stream, item);
  VornCDROctetsSerialize(&stream, name.data(), static_cast<int>(name.size()));
  return bytes;
}

std::optional<McastProbe> McastProbeGet(std::vector<char> bytes) {
  if (bytes.size() != SIZE)
    return std::nullopt;
  McastProbe probe;
  std::uint32_t magic = 0;
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes.data(), static_cast<int>(SIZE), VORN_CDR_BIG_ENDIAN);
  void* const items[WORDS] = {&magic,        &probe.kind,     &probe.run,
                              &probe.number, &probe.count,    &probe.answerPort,
                              &probe.sender, &probe.receiver, &probe.timeToLive};
  for (void* item : items)
    VornCDR4ByteDeserialize(&stream, item);
  probe.host = NameGet(bytes.data() + WORDS * 4);
  return magic == MAGIC && IsSound(probe) ? std::optional(probe) : std::nullopt;
}
