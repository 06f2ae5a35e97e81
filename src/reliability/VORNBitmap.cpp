// A window with lead 5 and size 10 whose first, second and last bits are set:
//
//   word 0   11000000 01...... ........ ........     text  (0,5)size 10 11000000,01
//   bit k    01234567 89
//
// The dots are the tail: bits of a used word past the size. Everything below works a word at a
// time; where the tail must not count, it is masked with TailMask.

// Here the header's searches become the functions that the library exports.
#define BITMAP_INLINE
#include "reliability/VORNBitmap.h"

#include "platform/VornCDRStream.h"
#include "utils/internal/CDRLayout.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::uint32_t ALL_ONES = UINT32_MAX;
constexpr int FULL_ELEMENT_LENGTH = 12 + 4 * Bitmap::WORD_COUNT;

// Bounded by the block, whatever a holder has written into the size.
int UsedWords(std::int32_t size) {
  const int bits = std::clamp(size, 0, Bitmap::CAPACITY);
  return (bits + Bitmap::WORD_BITS - 1) / Bitmap::WORD_BITS;
}

// The bits of word `index` that belong to a window of `size` bits; the word is a used one.
std::uint32_t TailMask(std::int32_t size, int index) {
  const int bits = size - index * Bitmap::WORD_BITS;
  return bits >= Bitmap::WORD_BITS ? ALL_ONES : ALL_ONES << (Bitmap::WORD_BITS - bits);
}

std::uint32_t BitMask(int k) { return (ALL_ONES / 2 + 1) >> (k % Bitmap::WORD_BITS); }

bool SizeIsStorable(std::int32_t size) { return size >= 0 && size <= Bitmap::CAPACITY; }

// Moves whole words toward the lead. The last `shift` words keep what they held.
void WordsMove(std::uint32_t* words, int count, int shift) {
  for (int i = 0; i + shift < count; ++i)
    words[i] = words[i + shift];
}

void BitsMove(std::uint32_t* words, int count, int shift) {
  for (int i = 0; i + 1 < count; ++i)
    words[i] = (words[i] << shift) | (words[i + 1] >> (Bitmap::WORD_BITS - shift));
  words[count - 1] <<= shift;
}

constexpr int TEXT_GROUP = 8;  // bits between two commas
constexpr char FOUR_BITS[][5] = {"0000", "0001", "0010", "0011", "0100", "0101", "0110", "0111",
                                 "1000", "1001", "1010", "1011", "1100", "1101", "1110", "1111"};

// The highest eight bits.
void GroupWrite(char* text, std::uint32_t bits) {
  std::memcpy(text, FOUR_BITS[bits >> 28], 4);
  std::memcpy(text + 4, FOUR_BITS[bits >> 24 & 15], 4);
}

char* BitsWrite(char* text, const std::uint32_t* words, std::int32_t size) {
  for (int k = 0; k < size; k += TEXT_GROUP) {
    if (k > 0)
      *text++ = ',';
    const std::uint32_t bits = words[k / Bitmap::WORD_BITS] << (k % Bitmap::WORD_BITS);
    const int count = std::min(size - k, TEXT_GROUP);
    if (count == TEXT_GROUP)
      GroupWrite(text, bits);
    else
      for (int i = 0; i < count; ++i)
        text[i] = (bits & BitMask(i)) != 0 ? '1' : '0';
    text += count;
  }
  return text;
}

}  // namespace

Bitmap::Bitmap(int newSize, const SequenceNumber& newLead, int fill)
    : lead(newLead), size(newSize), words(nullptr) {
  if (newSize > CAPACITY)
    return;
  words = static_cast<std::uint32_t*>(std::calloc(WORD_COUNT, sizeof(std::uint32_t)));
  if (words != nullptr)
    Init(newLead, newSize, fill);
}

Bitmap::~Bitmap() {
  std::free(words);
  words = nullptr;
}

int Bitmap::Init(const SequenceNumber& newLead, int newSize, int fill) {
  if (words == nullptr || newSize < 0 || newLead.high < 0)
    return 0;
  lead = newLead;
  size = std::min(newSize, CAPACITY);
  std::fill_n(words, UsedWords(size), fill != 0 ? ALL_ONES : 0U);
  return 1;
}

int Bitmap::BitInRange(const SequenceNumber& sn) const { return BitFind(sn) >= 0 ? 1 : 0; }

int Bitmap::BitSet(const SequenceNumber& sn, int value) {
  const int k = BitFind(sn);
  if (k < 0)
    return 0;
  std::uint32_t& word = words[k / WORD_BITS];
  word = value != 0 ? word | BitMask(k) : word & ~BitMask(k);
  return 1;
}

int Bitmap::BitGet(const SequenceNumber& sn, int* value) const {
  const int k = value != nullptr ? BitFind(sn) : -1;
  if (k < 0)
    return 0;
  *value = (words[k / WORD_BITS] & BitMask(k)) != 0 ? 1 : 0;
  return 1;
}

SequenceNumber Bitmap::BitMaxGet() const { return lead + size - 1; }

int Bitmap::LeadMove(const SequenceNumber& newLead) {
  if (words == nullptr || newLead < lead)
    return 0;
  if (newLead == lead)
    return 1;
  const int used = UsedWords(size);
  const int distance = newLead.Distance(lead);
  lead.Add(distance);
  if (distance >= size) {
    size = 0;
    return 1;
  }
  if (distance / WORD_BITS > 0)
    WordsMove(words, used, distance / WORD_BITS);
  // Over all the used words, those included that WordsMove left as they were: peers do the same,
  // and the tail bits that come of it travel in the wire form.
  if (distance % WORD_BITS > 0)
    BitsMove(words, used, distance % WORD_BITS);
  size -= distance;
  return 1;
}

int Bitmap::Truncate(const SequenceNumber& sn) {
  if (words == nullptr)
    return 0;
  if (sn < lead) {
    size = 0;
    return 1;
  }
  const int last = BitFind(sn);
  if (last < 0)
    return 0;
  size = last + 1;
  return 1;
}

void Bitmap::CompressTrailingOnes() {
  if (words == nullptr)
    return;
  int i = UsedWords(size) - 1;
  for (; i >= 0 && words[i] == ALL_ONES; --i)
    size = WORD_BITS * i;
  if (i < 0)
    return;
  const int bytes = std::countr_one(words[i]) / 8;
  if (bytes > 0)
    size = WORD_BITS * (i + 1) - 8 * bytes;
}

void Bitmap::Invert() {
  if (words == nullptr)
    return;
  for (int i = 0; i < UsedWords(size); ++i)
    words[i] = ~words[i];
}

int Bitmap::Copy(const Bitmap& source) {
  if (words == nullptr || source.words == nullptr)
    return 0;
  lead = source.lead;
  size = source.size;
  if (this != &source)
    std::copy_n(source.words, UsedWords(size), words);
  return 1;
}

int Bitmap::operator==(const Bitmap& other) const {
  if (words == nullptr || other.words == nullptr || lead != other.lead || size != other.size)
    return 0;
  std::uint32_t difference = 0;
  for (int i = 0; i < UsedWords(size); ++i)
    difference |= (words[i] ^ other.words[i]) & TailMask(size, i);
  return difference == 0 ? 1 : 0;
}

int Bitmap::operator!=(const Bitmap& other) const { return *this == other ? 0 : 1; }

int Bitmap::ElementSize(int offset) {
  return static_cast<int>(static_cast<unsigned int>(CDRPositionAlign4(offset)) +
                          static_cast<unsigned int>(FULL_ELEMENT_LENGTH));
}

int Bitmap::Serialize(VORNCDRStream* stream) const {
  if (words == nullptr || lead.Serialize(stream) == 0 || VornCDR4ByteSerialize(stream, &size) == 0)
    return 0;
  for (int i = 0; i < UsedWords(size); ++i)
    if (VornCDR4ByteSerialize(stream, &words[i]) == 0)
      return 0;
  return 1;
}

int Bitmap::Deserialize(VORNCDRStream* stream) {
  if (words == nullptr || lead.Deserialize(stream) == 0 ||
      VornCDR4ByteDeserialize(stream, &size) == 0)
    return 0;
  if (!SizeIsStorable(size)) {
    size = 0;
    return 0;
  }
  for (int i = 0; i < UsedWords(size); ++i)
    if (VornCDR4ByteDeserialize(stream, &words[i]) == 0)
      return 0;
  return 1;
}

char* Bitmap::ToString(char* buffer, int length) const {
  if (buffer == nullptr)
    return nullptr;
  lead.ToString(buffer, length);
  char* end = buffer + std::strlen(buffer);
  std::memcpy(end, "size ", 5);
  end = std::to_chars(end + 5, buffer + TEXT_SIZE, size).ptr;
  *end++ = ' ';
  // A size that a holder has written past the capacity has no bits that the buffer had room for.
  if (words != nullptr && size <= CAPACITY)
    end = BitsWrite(end, words, size);
  *end = '\0';
  return buffer;
}
