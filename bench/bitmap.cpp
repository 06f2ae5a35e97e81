// Windows of 256 bits. A bitset's size is known when it is compiled, and it counts from the other
// end, so that its searches need not reverse anything.

#include "targets.h"

#include "floors.h"
#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "support/Timed.h"

#include <bitset>
#include <boost/dynamic_bitset.hpp>
#include <memory>

namespace {

constexpr int SIZE = Bitmap::CAPACITY;
constexpr int FOUND = 200;  // where a search ends
constexpr int MOVED = 37;   // one word and some bits

// The forms of one window, with one bit set.
struct Windows {
  Bitmap library{SIZE, SequenceNumber(0), 0};
  std::bitset<SIZE> bitset;
  boost::dynamic_bitset<> dynamic = boost::dynamic_bitset<>(SIZE);
  char text[Bitmap::TEXT_SIZE];
  char bytes[64];
  Windows() {
    library.BitSet(SequenceNumber(FOUND), 1);
    bitset[FOUND] = true;
    dynamic[FOUND] = true;
  }
};

class WindowCase {
public:
  explicit WindowCase(const char* name) : _subject{name, "", 0} {}
  // `step` works on windows of its own that the compiler knows nothing about.
  template <typename Step> WindowCase& Add(const char* variant, Role role, Step step) {
    _subject.Add(variant, role, Always([step, windows = std::make_shared<Windows>()] {
                   return step(*Unknown(windows.get()));
                 }));
    return *this;
  }
  void Run(Runner& runner) const { runner.Run(_subject); }

private:
  Case _subject;
};

// What a search in a window cannot do without: is the place where it begins in it, and which number
// is the bit that it finds.
std::int64_t BehindLeadFind(Windows& w) {
  const std::int64_t lead = w.library.lead.IntegerGet();
  const std::int64_t from = lead;
  const auto distance = static_cast<std::uint64_t>(from - Unknown(&lead)[0]);
  if (distance >= SIZE)
    return lead;
  return lead + static_cast<std::int64_t>(distance == 0 ? w.bitset._Find_first()
                                                        : w.bitset._Find_next(distance - 1));
}

void SearchesRun(Runner& runner) {
  WindowCase("first set bit, the 201st")
      .Add("library", Role::LIBRARY,
           [](Windows& w) {
             SequenceNumber found;
             w.library.BitFirstGet(w.library.lead, 1, &found);
             return found.low;
           })
      .Add("bitset", Role::FLOOR, [](Windows& w) { return w.bitset._Find_first(); })
      .Add("dynamic_bitset", Role::PEER, [](Windows& w) { return w.dynamic.find_first(); })
      .Add("bitset with a lead", Role::PEER, BehindLeadFind)
      .Run(runner);
  WindowCase("any bit set")
      .Add("library", Role::LIBRARY, [](Windows& w) { return w.library.Has(1); })
      .Add("bitset", Role::FLOOR, [](Windows& w) { return w.bitset.any(); })
      .Add("dynamic_bitset", Role::PEER, [](Windows& w) { return w.dynamic.any(); })
      .Run(runner);
}

void BitsRun(Runner& runner) {
  WindowCase("set a bit and read it")
      .Add("library", Role::LIBRARY,
           [](Windows& w) {
             int bit = 0;
             const SequenceNumber number = w.library.lead + 77;
             w.library.BitSet(number, 1);
             w.library.BitGet(number, &bit);
             return bit;
           })
      .Add("bitset", Role::FLOOR,
           [](Windows& w) {
             w.bitset[77] = true;
             return Unknown(&w)->bitset.test(77);
           })
      .Add("dynamic_bitset", Role::PEER,
           [](Windows& w) {
             w.dynamic[77] = true;
             return Unknown(&w)->dynamic.test(77);
           })
      .Run(runner);
  // The library's window starts again at full size each time, as a bitset does of itself.
  WindowCase("move the lead by 37")
      .Add("library", Role::LIBRARY,
           [](Windows& w) {
             w.library.lead = SequenceNumber::FromInteger(0);
             w.library.size = SIZE;
             return w.library.LeadMove(SequenceNumber::FromInteger(MOVED));
           })
      .Add("bitset", Role::FLOOR, [](Windows& w) { return (w.bitset >>= MOVED).size(); })
      .Add("dynamic_bitset", Role::PEER, [](Windows& w) { return (w.dynamic >>= MOVED).size(); })
      .Run(runner);
}

void FormsRun(Runner& runner) {
  WindowCase("text of 256 bits")
      .Add("library", Role::LIBRARY,
           [](Windows& w) { return w.library.ToString(w.text, sizeof w.text)[0]; })
      .Add("bitset", Role::FLOOR, [](Windows& w) { return w.bitset.to_string(); })
      .Add("dynamic_bitset", Role::PEER,
           [](Windows& w) {
             std::string text;
             boost::to_string(w.dynamic, text);
             return text;
           })
      .Run(runner);
  WindowCase("serialise 256 bits")
      .Add("library", Role::LIBRARY,
           [](Windows& w) {
             VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, w.bytes, sizeof w.bytes, 0};
             return w.library.Serialize(&stream);
           })
      .Add("floor", Role::FLOOR,
           [](Windows& w) {
             const std::uint32_t head[3] = {static_cast<std::uint32_t>(w.library.lead.high),
                                            w.library.lead.low, SIZE};
             return floors::WordsStore(floors::WordsStore(w.bytes, head, 3), w.library.words, 8);
           })
      .Add("a call for each item", Role::PEER,
           [](Windows& w) {
             floors::WordStream stream{w.bytes, w.bytes + sizeof w.bytes, true};
             const auto high = static_cast<std::uint32_t>(w.library.lead.high);
             const auto size = static_cast<std::uint32_t>(w.library.size);
             bool isGood = floors::WordPut(&stream, &high) &&
                           floors::WordPut(&stream, &w.library.lead.low) &&
                           floors::WordPut(&stream, &size);
             for (int i = 0; isGood && i < Bitmap::WORD_COUNT; ++i)
               isGood = floors::WordPut(&stream, &w.library.words[i]);
             return isGood;
           })
      .Run(runner);
}

}  // namespace

void BitmapBench(Runner& runner) {
  SearchesRun(runner);
  BitsRun(runner);
  FormsRun(runner);
}
