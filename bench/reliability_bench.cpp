#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <bitset>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int SIZE = Bitmap::CAPACITY;
constexpr int FOUND = 200;  // where a search ends
constexpr int MOVED = 37;   // one word and some bits

// Three forms of one window with one bit set, at FOUND.
struct Windows {
  Bitmap library{SIZE, SequenceNumber(0), 0};
  std::vector<bool> vector = std::vector<bool>(SIZE);
  std::bitset<SIZE> bitset;
  char bytes[64];
  Windows() {
    library.BitSet(SequenceNumber(FOUND), 1);
    vector[FOUND] = true;
    bitset[FOUND] = true;
  }
  int Bit(int k) const {
    int bit = 0;
    library.BitGet(library.lead + k, &bit);
    return bit;
  }
};

// Runs `step` once per iteration, on windows of its own that the compiler knows nothing about.
template <typename Step> void Register(const std::string& name, Step step) {
  benchmark::RegisterBenchmark(name.c_str(), [step](benchmark::State& state) mutable {
    Windows own;
    Windows* windows = &own;
    benchmark::DoNotOptimize(windows);
    for (auto _ : state) {
      benchmark::DoNotOptimize(step(*windows));
      benchmark::ClobberMemory();
    }
  });
}

template <typename Number> void NumbersRegister(const std::string& variant) {
  std::vector<Number> numbers;
  numbers.reserve(SIZE);
  for (int i = 0; i < SIZE; ++i)
    numbers.push_back(Number(i * 7919 % SIZE));
  Register("256 additions/" + variant, [numbers](Windows&) mutable {
    for (Number& number : numbers)
      number = number + 3;
    return numbers.data();
  });
  Register("256 comparisons/" + variant, [numbers](Windows&) {
    return std::count_if(numbers.begin(), numbers.end(),
                         [&numbers](const Number& number) { return number < numbers[SIZE / 2]; });
  });
}

void SearchesRegister() {
  Register("first set bit/library", [](Windows& windows) {
    SequenceNumber found;
    windows.library.BitFirstGet(windows.library.lead, 1, &found);
    return found.low;
  });
  Register("first set bit/vector<bool>", [](Windows& windows) {
    return std::find(windows.vector.begin(), windows.vector.end(), true) - windows.vector.begin();
  });
  Register("first set bit/bitset", [](Windows& windows) { return windows.bitset._Find_first(); });
  Register("first set bit/bit by bit", [](Windows& windows) {
    int k = 0;
    while (k < SIZE && windows.Bit(k) == 0)
      ++k;
    return k;
  });
  Register("any bit set/library", [](Windows& windows) { return windows.library.Has(1); });
  Register("any bit set/bitset", [](Windows& windows) { return windows.bitset.any(); });
}

// The library's window starts again at full size each time, as a bitset does of itself.
void MovesRegister() {
  Register("move the lead/library", [](Windows& windows) {
    windows.library.lead = SequenceNumber(0);
    windows.library.size = SIZE;
    return windows.library.LeadMove(SequenceNumber(MOVED));
  });
  Register("move the lead/vector<bool>", [](Windows& windows) {
    std::copy(windows.vector.begin() + MOVED, windows.vector.end(), windows.vector.begin());
    return windows.vector.size();
  });
  Register("move the lead/bitset", [](Windows& windows) {
    windows.bitset >>= MOVED;
    return windows.bitset.size();
  });
  Register("move the lead/bit by bit", [](Windows& windows) {
    for (int k = 0; k + MOVED < SIZE; ++k)
      windows.library.BitSet(windows.library.lead + k, windows.Bit(k + MOVED));
    return SIZE;
  });
}

void FormsRegister() {
  Register("text/library", [](Windows& windows) {
    char text[Bitmap::TEXT_SIZE];
    return windows.library.ToString(text, sizeof text)[0];
  });
  Register("text/bitset", [](Windows& windows) { return windows.bitset.to_string(); });
  Register("text/bit by bit", [](Windows& windows) {
    std::string text;
    for (int k = 0; k < SIZE; ++k)
      text += windows.Bit(k) != 0 ? '1' : '0';
    return text;
  });
  Register("serialize/library", [](Windows& windows) {
    VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, windows.bytes, sizeof windows.bytes, 0};
    return windows.library.Serialize(&stream);
  });
  Register("serialize/copy and swap", [](Windows& windows) {
    std::uint32_t words[11] = {0, 5, SIZE};
    std::memcpy(words + 3, windows.library.words, 32);
    for (std::uint32_t& word : words)
      word = __builtin_bswap32(word);
    std::memcpy(windows.bytes, words, sizeof words);
    return windows.bytes[0];
  });
}

}  // namespace

int main(int argc, char** argv) {
  NumbersRegister<SequenceNumber>("library");
  NumbersRegister<std::int64_t>("int64_t");
  SearchesRegister();
  MovesRegister();
  FormsRegister();
  benchmark::Initialize(&argc, argv);
  return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
