#include "reliability/VORNBitmap.h"

#include "support/Emulator.h"
#include "support/Faults.h"
#include "support/Results.h"

#include <algorithm>
#include <climits>
#include <random>

namespace {

using Window = Scripted;

constexpr std::uint32_t ONES = UINT32_MAX;

/// The window and all the bits of its storage: whole words matter, since peers see them.
struct Model {
  std::int64_t lead;
  int size;
  std::vector<bool> bits;

  explicit Model(const Bitmap& bitmap) : lead(bitmap.lead.IntegerGet()), size(bitmap.size) {
    for (int k = 0; k < 256; ++k)
      bits.push_back((bitmap.words[k / 32] >> (31 - k % 32) & 1) != 0);
  }
  bool operator==(const Model&) const = default;

  std::vector<bool>::iterator At(int k) { return bits.begin() + k; }
  int End() const { return (size + 31) / 32 * 32; }  // of the words in use
  int First(int from, int value) {
    return static_cast<int>(std::find(At(from), At(size), value) - At(0));
  }
  void LeadMove(int distance) {
    if (distance < size) {
      std::copy(At(distance / 32 * 32), At(End()), At(0));
      std::copy(At(distance % 32), At(End()), At(0));
      std::fill(At(End() - distance % 32), At(End()), false);
    }
    lead += distance;
    size = std::max(size - distance, 0);
  }
  void CompressTrailingOnes() {  // whole bytes
    int end = End();
    while (end > 0 && *At(end - 1))
      --end;
    if (End() - end >= 8)
      size = (end + 7) / 8 * 8;
  }
  std::string Text() {
    std::string text = "(" + std::to_string(lead >> 32) + "," + std::to_string(lead & ONES) +
                       ")size " + std::to_string(size) + " ";
    for (int k = 0; k < size; ++k)
      text += std::string(k > 0 && k % 8 == 0 ? "," : "") + (*At(k) ? '1' : '0');
    return text;
  }
};

std::string Text(const Bitmap& bitmap) {
  char buffer[Bitmap::TEXT_SIZE];
  EXPECT_EQ(bitmap.ToString(buffer, 0), buffer);
  return buffer;
}

TEST_F(Window, AgreesWithAModelAtEverySize) {
  std::mt19937 random(2);
  const auto pick = [&](int below) {
    return static_cast<int>(random() % static_cast<unsigned>(below));
  };
  Bitmap bitmap(0, SequenceNumber(0), 0), copy(256, SequenceNumber(9), 1);
  const int rounds = 257 * (VORN_TEST_EMULATOR[0] != '\0' ? 10 : 100);
  for (int round = 0; round < rounds; ++round) {
    // Leads that end with the range of numbers, too. Words of noise, or equal bits with odd ones.
    const int size = round % 257, style = pick(4), operation = pick(5), value = pick(2);
    const std::int64_t first = style == 0 ? INT64_MAX - size : pick(9) + (1LL << 32) - 99;
    bitmap.Init(SequenceNumber::FromInteger(first), 256, value);
    for (int i = 0; i < 8 && style > 1; ++i)
      bitmap.words[i] = style == 2 ? static_cast<std::uint32_t>(random()) : ONES >> (random() % 32);
    for (const int odd : {size, size - pick(2), pick(256)})
      bitmap.BitSet(bitmap.lead + odd, value == 0);
    bitmap.size = size;

    Model model(bitmap);
    const int k = pick(size + 3) - 2;
    SCOPED_TRACE(testing::Message() << round << ' ' << operation << ' ' << k);
    const SequenceNumber sn = bitmap.lead + k;
    const bool inRange = k >= 0 && k < size;
    int bit = 7;
    ResultsExpect(inRange, {{"is in", bitmap.BitInRange(sn)}, {"get", bitmap.BitGet(sn, &bit)}});
    EXPECT_EQ(bit, inRange ? *model.At(k) : 7);
    EXPECT_EQ(bitmap.BitMaxGet().IntegerGet(), model.lead + (size - 1));
    EXPECT_EQ(Text(bitmap), model.Text());
    for (const int wanted : {0, 1, 2, -1}) {
      const bool searched = inRange || (k == 0 && size == 0);
      SequenceNumber found = sn;  // searched from and stored to alike
      EXPECT_EQ(bitmap.BitFirstGet(found, wanted, &found), searched) << wanted;
      EXPECT_EQ(found.IntegerGet() - model.lead, searched ? model.First(k, wanted) : 0) << wanted;
      EXPECT_EQ(bitmap.Has(wanted), model.First(0, wanted != 0) < size) << wanted;
    }
    Model copied(copy);  // after the words in use the copy keeps its own
    std::copy(model.At(0), model.At(model.End()), copied.At(0));
    ResultsExpect(1, {{"copy", copy.Copy(bitmap)}, {"to itself", bitmap.Copy(bitmap)}});
    EXPECT_EQ(Model(copy).bits, copied.bits);
    const int flipped = pick(256);
    copy.words[flipped / 32] ^= 1U << (31 - flipped % 32);
    EXPECT_EQ(copy == bitmap, flipped >= size);
    EXPECT_EQ(copy != bitmap, flipped < size);

    if (operation == 0) {
      EXPECT_EQ(bitmap.BitSet(sn, -value), inRange);
      if (inRange)
        *model.At(k) = value != 0;
    } else if (operation == 1) {
      EXPECT_EQ(bitmap.LeadMove(sn), k >= 0);
      if (k >= 0)
        model.LeadMove(k);
    } else if (operation == 2) {
      EXPECT_EQ(bitmap.Truncate(sn), k < size);
      model.size = std::min(std::max(k + 1, 0), size);
    } else if (operation == 3) {
      bitmap.CompressTrailingOnes();
      model.CompressTrailingOnes();
    } else {
      bitmap.Invert();
      std::transform(model.At(0), model.At(model.End()), model.At(0), std::logical_not());
    }
    ASSERT_EQ(Model(bitmap), model);
  }
}

TEST_F(Window, FillsWholeWordsUpToItsCapacityAndMovesAtMost2147483647AtATime) {
  Bitmap bitmap(256, SequenceNumber(9), 1);
  EXPECT_EQ(bitmap.Init(SequenceNumber(0), 33, 0), 1);
  EXPECT_EQ(bitmap.words[1], 0U);
  EXPECT_EQ(bitmap.words[2], ONES);
  EXPECT_EQ(bitmap.Init(SequenceNumber(0), 0, 1), 1);
  EXPECT_EQ(bitmap.size, 0);
  EXPECT_EQ(bitmap.Init(SequenceNumber(0), 999, 1), 1);
  EXPECT_EQ(bitmap.size, 256);
  EXPECT_EQ(bitmap.Has(0), 0);
  bitmap.size = 999;  // by hand: what lies after the block stays out of reach
  EXPECT_EQ(bitmap.BitSet(bitmap.lead + 256, 1), 0);
  EXPECT_EQ(bitmap.LeadMove(SequenceNumber(1, 0)), 1);
  EXPECT_EQ(bitmap.size, 0);
  EXPECT_EQ(bitmap.lead, SequenceNumber(0, INT_MAX));
  // The range of numbers ends within this one; a negative size reaches round from the least one.
  Bitmap beyond(9, SequenceNumber::FromInteger(INT64_MAX - 8), 1), least(-5, {INT_MIN, 0}, 0);
  ResultsExpect(0, {{"set", beyond.BitSet(beyond.lead, 0)},
                    {"truncate", beyond.Truncate(beyond.lead)},
                    {"first", beyond.BitFirstGet(beyond.lead, 1, &bitmap.lead)},
                    {"set after the least", least.BitSet(least.lead + 100000, 1)},
                    {"truncate", least.Truncate(SequenceNumber(5))}});
}

TEST_F(Window, KeepsNegativeArgumentsButNoBits) {
  for (const int size : {-1, INT_MIN}) {
    Bitmap bitmap(size, SequenceNumber(5), 1);
    int bit = 0;
    ResultsExpect(0, {{"get", bitmap.BitGet(bitmap.lead, &bit)},
                      {"has 0", bitmap.Has(0)},
                      {"has 1", bitmap.Has(1)},
                      {"negative lead", bitmap.Init(SequenceNumber(-1), 3, 1)},
                      {"and size", bitmap.Init(SequenceNumber(1), -3, 1)}});
    bitmap.CompressTrailingOnes();
    bitmap.Invert();
    EXPECT_EQ(Text(bitmap), "(0,5)size " + std::to_string(size) + " ");
    EXPECT_EQ(bitmap.words[0], 0U);
    EXPECT_EQ(bitmap.LeadMove(SequenceNumber(6)), 1);
    EXPECT_EQ(bitmap.size, 0);
  }
  Bitmap bitmap(9, SequenceNumber(-5), 1);
  EXPECT_EQ(Text(bitmap), "-(0,5)size 9 00000000,0");
  EXPECT_EQ(bitmap.BitGet(bitmap.lead, nullptr), 0);
  EXPECT_EQ(bitmap.BitFirstGet(bitmap.lead, 0, nullptr), 0);
  EXPECT_EQ(bitmap.ToString(nullptr, 322), nullptr);
}

TEST_F(Window, DiffersFromOneWithAnotherLeadOrSize) {
  const Bitmap window(40, {0, 5}, 1), lead(40, {0, 6}, 1), size(39, {0, 5}, 1);
  ResultsExpect(1, {{"lead", window != lead}, {"size", window != size}});
  ResultsExpect(0, {{"lead", window == lead}, {"size", window == size}});
}

TEST_F(Window, WithoutStorageRefusesEverything) {
  for (const int size : {257, INT_MAX, 9}) {
    Bitmap other(9, SequenceNumber(5), 1);
    System().failingAllocation = size == 9 ? System().allocations + 1 : 0;
    Bitmap bitmap(size, SequenceNumber(5), 1);
    int bit = 7;
    SequenceNumber first;
    ResultsExpect(0, {{"init", bitmap.Init(SequenceNumber(5), 3, 1)},
                      {"is in", bitmap.BitInRange(bitmap.lead)},
                      {"set", bitmap.BitSet(bitmap.lead, 1)},
                      {"get", bitmap.BitGet(bitmap.lead, &bit)},
                      {"has 0", bitmap.Has(0)},
                      {"has 1", bitmap.Has(1)},
                      {"first", bitmap.BitFirstGet(bitmap.lead, 1, &first)},
                      {"move", bitmap.LeadMove(SequenceNumber(6))},
                      {"truncate", bitmap.Truncate(bitmap.lead)},
                      {"copy", bitmap.Copy(other)},
                      {"copy from", other.Copy(bitmap)},
                      {"equals", bitmap == other},
                      {"write", bitmap.Serialize(nullptr)},
                      {"read", bitmap.Deserialize(nullptr)}});
    bitmap.CompressTrailingOnes();
    bitmap.Invert();
    EXPECT_EQ(Text(bitmap), "(0,5)size " + std::to_string(size) + " ");
  }
}

}  // namespace
