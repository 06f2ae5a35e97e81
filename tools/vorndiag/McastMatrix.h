#ifndef VORNDIAG_MCAST_MATRIX_H
#define VORNDIAG_MCAST_MATRIX_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// Who heard whom.

/// What one receiving interface heard of one sending one.
struct McastCell {
  int sent = 0;
  int heard = 0;           ///< each number once
  int repeated = 0;        ///< what came again
  int timeToLiveLow = -1;  ///< least that was left; -1: not known
  int timeToLiveHigh = -1;
  bool isExpected = false;  ///< something should have come

  int LostGet() const { return sent - heard; }
  /// Expected and not there, or begun and not whole.
  bool IsTrouble() const { return LostGet() > 0 && (isExpected || heard > 0); }
};

/// Counts datagrams. Only what it is told; it looks at nothing.
class McastMatrix {
public:
  using Key = std::pair<std::string, std::string>;  ///< sender and receiver

  /// Something should come from `sender` to `receiver`.
  void Expect(const std::string& sender, const std::string& receiver, int sent);
  /// Number `number` of the `sent` of `run` has come. Another run of a sender begins anew. At most
  /// `CELLS_MAX` pairs are kept: those that come later are not counted.
  void Add(const std::string& sender, const std::string& receiver, std::uint32_t run, int sent,
           int number, int timeToLive);

  const std::map<Key, McastCell>& CellsGet() const { return _cells; }
  std::vector<std::string> SendersGet() const;
  std::vector<std::string> ReceiversGet() const;
  /// Whether anything came to one of the receivers that are not in `ours`.
  bool HasOther(const std::set<std::string>& ours) const;
  bool IsEmpty() const;

private:
  static constexpr std::size_t CELLS_MAX = 4096;
  struct Numbers {
    std::uint32_t run = 0;
    std::set<int> seen;
  };

  std::map<Key, McastCell> _cells;
  std::map<Key, Numbers> _numbers;
};

#endif
