#include "vorndiag/HostMarks.h"

#include "net/miscIPUtils.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t IPV6_GROUP_DIGITS = 4;

bool IsHost(const HostEntry& entry) { return entry.namesHost && entry.mask == VORN_HOST_MASK; }

bool IsSubnet(const HostEntry& entry) { return entry.namesHost && entry.mask != VORN_HOST_MASK; }

bool IsInside(const HostEntry& host, const HostEntry& subnet) {
  return (host.address & subnet.mask) == (subnet.address & subnet.mask);
}

// "/24" is meant as a number of bits: how that is written here.
std::string MaskComplaint(const HostEntry& entry) {
  const std::string mask = entry.text.substr(entry.text.find('/') + 1);
  const bool isNumber = !mask.empty() && mask.size() <= 2 &&
                        mask.find_first_not_of("0123456789") == std::string::npos;
  const int bits = isNumber ? std::atoi(mask.c_str()) : 0;
  std::string text = "a mask is 8 hexadecimal digits";
  if (bits < 1 || bits > 32)
    return text;
  char written[16];
  std::snprintf(written, sizeof written, "%08x", UINT32_MAX << (32 - bits));
  return text + ": " + std::to_string(bits) + " bits are /" + written;
}

bool HasLargeNumber(const std::string& host) {
  for (std::size_t i = 0; i < host.size();) {
    const std::size_t end = std::min(host.find('.', i), host.size());
    const std::string number = host.substr(i, end - i);
    if (number.size() > 3 || std::atoi(number.c_str()) > 255)
      return true;
    i = end + 1;
  }
  return false;
}

std::string FormComplaint(const HostEntry& entry) {
  switch (entry.form) {
  case HostEntryForm::SHORT_MASK:
    return MaskComplaint(entry);
  case HostEntryForm::OTHER_BYTE:
    return entry.text.find('\r') != std::string::npos
               ? "holds a carriage return, a byte that is in no host's name"
               : "holds a byte that is in no host's name";
  case HostEntryForm::OTHER_NUMBER:
    return std::string("is not written like the address that it is read as") +
           (HasLargeNumber(entry.host) ? ": a number is above 255" : "");
  case HostEntryForm::GOOD:
    break;
  }
  return "";
}

bool IsHexGroup(const HostEntry& entry) {
  return entry.text.size() <= IPV6_GROUP_DIGITS &&
         std::all_of(entry.text.begin(), entry.text.end(),
                     [](unsigned char byte) { return std::isxdigit(byte) != 0; });
}

// Two neighbours that can be groups, one of which is no host's name: colons separate entries.
bool IsIpv6Part(const HostEntry& entry, const HostEntry& other) {
  const auto isNoName = [](const HostEntry& group) {
    return !group.namesHost || std::isdigit(static_cast<unsigned char>(group.text.front())) != 0;
  };
  return IsHexGroup(entry) && IsHexGroup(other) && std::abs(entry.position - other.position) <= 2 &&
         (isNoName(entry) || isNoName(other));
}

bool IsIpv6Part(const std::vector<HostEntry>& entries, std::size_t i) {
  return (i > 0 && IsIpv6Part(entries[i], entries[i - 1])) ||
         (i + 1 < entries.size() && IsIpv6Part(entries[i], entries[i + 1]));
}

// The first entry with the same key; `entries.size()` for none before `i`.
std::size_t TwinFind(const std::vector<HostEntry>& entries, std::size_t i) {
  for (std::size_t k = 0; k < i; ++k)
    if (entries[k].namesHost && entries[k].mask == entries[i].mask &&
        IsInside(entries[i], entries[k]))
      return k;
  return entries.size();
}

// Why no address is admitted by the entry. 127.0.0.1 stands for this host, wherever that is.
std::string SilenceGet(const std::vector<HostEntry>& entries, const HostEntry& entry) {
  if (entry.address == VORN_LOOPBACK_ADDRESS)
    return "";
  if (IsHost(entry) && HostIPIsMulticastAddress(entry.address) != 0)
    return "can match nobody: no host has the address of a group";
  if (!HostListHasBothKinds(entries))
    return "";
  const auto isPartner = [&](const HostEntry& other) {
    return IsHost(entry) ? IsSubnet(other) && IsInside(entry, other)
                         : IsHost(other) && IsInside(other, entry);
  };
  if (std::any_of(entries.begin(), entries.end(), isPartner))
    return "";
  return IsHost(entry) ? "can match nobody: the host is in no subnet of the list"
                       : "can match nobody: no host of the list is in it";
}

// Ones from the left and then zeros.
bool MaskHasHoles(std::uint32_t mask) { return (~mask & (~mask + 1U)) != 0; }

class Marker {
public:
  explicit Marker(const std::vector<HostEntry>& entries) : _entries(entries) {}
  void Mark(std::size_t i);
  std::vector<HostMark> marks;

private:
  void Add(std::size_t i, bool isTrouble, const std::string& text) {
    if (!text.empty())
      marks.push_back({i, isTrouble, text});
  }

  const std::vector<HostEntry>& _entries;
};

void Marker::Mark(std::size_t i) {
  const HostEntry& entry = _entries[i];
  if (!entry.namesHost)
    Add(i, true, "no such host");
  if (IsIpv6Part(_entries, i))
    Add(i, true, "looks like a part of an IPv6 address: a colon ends an entry");
  if (entry.namesHost || entry.form == HostEntryForm::OTHER_BYTE)
    Add(i, true, FormComplaint(entry));
  if (!entry.namesHost)
    return;
  Add(i, true, SilenceGet(_entries, entry));
  if (MaskHasHoles(entry.mask))
    Add(i, false, "the mask has zeros between its ones");
  if (const std::size_t twin = TwinFind(_entries, i); twin < _entries.size())
    Add(i, false, "means the same as " + _entries[twin].text);
}

}  // namespace

std::vector<HostMark> HostMarksGet(const std::vector<HostEntry>& entries) {
  Marker marker(entries);
  for (std::size_t i = 0; i < entries.size(); ++i)
    marker.Mark(i);
  return marker.marks;
}

bool HostListHasBothKinds(const std::vector<HostEntry>& entries) {
  return std::any_of(entries.begin(), entries.end(), IsHost) &&
         std::any_of(entries.begin(), entries.end(), IsSubnet);
}
