// Sequence numbers against int64_t, and the wire forms of numbers and times against stores by hand.

#include "targets.h"

#include "floors.h"
#include "platform/VornCDRStream.h"
#include "reliability/SequenceNumber.h"
#include "support/Timed.h"
#include "time/VORNNtpTime.h"

#include <array>
#include <bit>

namespace {

constexpr int COUNT = 256;

// What the order of the words costs: the upper one first, on every host.
struct TurnedInteger {
  std::uint64_t words;
  explicit TurnedInteger(int value = 0) : words(Turn(static_cast<std::uint64_t>(value))) {}
  TurnedInteger operator+(int n) const {
    TurnedInteger sum;
    sum.words = Turn(Turn(words) + static_cast<std::uint64_t>(n));
    return sum;
  }
  static std::uint64_t Turn(std::uint64_t value) {
    return std::endian::native == std::endian::big ? value : std::rotl(value, 32);
  }
};

// From the start of a cache line: where the numbers lie would count for more than what is done.
template <typename Number> struct alignas(64) Numbers : std::array<Number, COUNT> {};

template <typename Number> Numbers<Number> NumbersMake() {
  Numbers<Number> numbers;
  for (int i = 0; i < COUNT; ++i)
    numbers[static_cast<std::size_t>(i)] = Number(i * 7919 % COUNT);
  return numbers;
}

template <typename Number> std::function<Measure()> Additions() {
  return Always([numbers = NumbersMake<Number>()]() mutable {
    for (Number& number : numbers)
      number = number + 3;
    return numbers.data();
  });
}

template <typename Number> std::function<Measure()> Comparisons() {
  return Always([numbers = NumbersMake<Number>()] {
    return std::count_if(numbers.begin(), numbers.end(),
                         [&numbers](const Number& number) { return number < numbers[COUNT / 2]; });
  });
}

std::int64_t Distance(std::int64_t a, std::int64_t b) { return a < b ? b - a : a - b; }
int Distance(const SequenceNumber& a, const SequenceNumber& b) { return a.Distance(b); }

template <typename Number> std::function<Measure()> Distances() {
  return Always([numbers = NumbersMake<Number>()] {
    std::int64_t sum = 0;
    for (const Number& number : numbers)
      sum += Distance(number, numbers[COUNT / 2]);
    return sum;
  });
}

// Writes the two words of an element and reads them again.
template <typename Element> std::function<Measure()> LibraryWire() {
  return Always([element = Element(5, 7)]() mutable {
    char bytes[8];
    VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes, sizeof bytes, 0};
    int isGood = Unknown(&element)->Serialize(&stream);
    stream.position = 0;
    isGood &= element.Deserialize(&stream);
    if (isGood == 0)
      throw std::runtime_error("a wire form does not fit");
    return isGood;
  });
}

std::function<Measure()> FloorWire() {
  return Always([words = std::vector<std::uint32_t>{5, 7}]() mutable {
    char bytes[8];
    floors::WordsStore(bytes, Unknown(words.data()), 2);
    const char* place = floors::WordLoad(Unknown(bytes), &words[0]);
    floors::WordLoad(place, &words[1]);
    return words[0];
  });
}

using Make = std::function<Measure()>;

void BothRun(Runner& runner, const char* name, const Make& library, const Make& floor) {
  Case subject{name, "", 0};
  subject.Add("library", Role::LIBRARY, library);
  subject.Add("floor", Role::FLOOR, floor);
  runner.Run(subject);
}

}  // namespace

void NumbersBench(Runner& runner) {
  Case additions{"256 additions", "", 0};
  additions.Add("library", Role::LIBRARY, Additions<SequenceNumber>());
  additions.Add("floor", Role::FLOOR, Additions<std::int64_t>());
  additions.Add("integer, halves turned", Role::PEER, Additions<TurnedInteger>());
  runner.Run(additions);
  BothRun(runner, "256 comparisons", Comparisons<SequenceNumber>(), Comparisons<std::int64_t>());
  BothRun(runner, "256 distances", Distances<SequenceNumber>(), Distances<std::int64_t>());
  BothRun(runner, "number, to the wire and back", LibraryWire<SequenceNumber>(), FloorWire());
  BothRun(runner, "time, to the wire and back", LibraryWire<VORNNtpTime>(), FloorWire());
}
