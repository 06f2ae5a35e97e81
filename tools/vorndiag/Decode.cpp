#include "vorndiag/Decode.h"

#include "reliability/VORNBitmap.h"
#include "time/VORNNtpTime.h"

#include <cctype>

namespace {

constexpr const char* SEPARATORS = " \t\n:,";
constexpr int FIXED_SIZE = 8;           // of a time and of a sequence number
constexpr int BITMAP_HEADER_SIZE = 12;  // lead and size

int DigitGet(char digit) {
  if (digit >= '0' && digit <= '9')
    return digit - '0';
  return std::tolower(static_cast<unsigned char>(digit)) - 'a' + 10;
}

bool IsHex(char byte) { return std::isxdigit(static_cast<unsigned char>(byte)) != 0; }

std::string BytesText(std::size_t count, const char* one, const char* more) {
  return std::to_string(count) +
         (count == 1 ? std::string(" byte ") + one : std::string(" bytes ") + more);
}

std::string ShortText(int length, int needed) {
  return BytesText(static_cast<std::size_t>(length), "is", "are") +
         " too short: " + std::to_string(needed) + " are needed";
}

std::string LeftOverText(std::size_t length, std::size_t used) {
  return BytesText(length - used, "is", "are") + " left over after " + std::to_string(used);
}

void TimeDecode(VORNCDRStream* stream, Decoded* decoded) {
  VORNNtpTime time;
  if (time.Deserialize(stream) == 0) {
    decoded->error = ShortText(stream->capacity, FIXED_SIZE);
    return;
  }
  char text[VORNNtpTime::TEXT_SIZE];
  decoded->text = time.ToString(text, sizeof text);
  decoded->words = {time.sec, time.frac};
  decoded->isInfinite = time == VORNNtpTime::Infinite();
}

void NumberDecode(VORNCDRStream* stream, Decoded* decoded) {
  SequenceNumber number;
  if (number.Deserialize(stream) == 0) {
    decoded->error = ShortText(stream->capacity, FIXED_SIZE);
    return;
  }
  char text[SequenceNumber::TEXT_SIZE];
  decoded->text = number.ToString(text, sizeof text);
  decoded->words = {number.high, number.low};
  decoded->number = number.IntegerGet();
}

// Why the library refused: the size word is read again, as far as there is one.
std::string BitmapFaultGet(VORNCDRStream stream) {
  std::int32_t size = 0;
  VornCDRStreamPositionSet(&stream, FIXED_SIZE);
  if (VornCDR4ByteDeserialize(&stream, &size) == 0)
    return ShortText(stream.capacity, BITMAP_HEADER_SIZE);
  if (size < 0 || size > Bitmap::CAPACITY)
    return "size " + std::to_string(size) + " is none of a window, which has 0 to " +
           std::to_string(Bitmap::CAPACITY) + " bits";
  const int words = (size + Bitmap::WORD_BITS - 1) / Bitmap::WORD_BITS;
  return ShortText(stream.capacity, BITMAP_HEADER_SIZE + 4 * words);
}

std::string BitsGet(const Bitmap& bitmap, int from, int to) {
  std::string bits;
  for (int k = from; k < to; ++k) {
    const std::uint32_t word = bitmap.words[k / Bitmap::WORD_BITS];
    const int position = Bitmap::WORD_BITS - 1 - k % Bitmap::WORD_BITS;
    bits += ((word >> position) & 1U) != 0 ? '#' : '.';
  }
  return bits;
}

void BitmapDecode(VORNCDRStream* stream, Decoded* decoded) {
  Bitmap bitmap(Bitmap::CAPACITY, 0, 0);
  if (bitmap.words == nullptr) {
    decoded->error = "no memory";
    return;
  }
  if (bitmap.Deserialize(stream) == 0) {
    decoded->error = BitmapFaultGet(*stream);
    return;
  }
  const int whole = (bitmap.size + Bitmap::WORD_BITS - 1) / Bitmap::WORD_BITS * Bitmap::WORD_BITS;
  char text[Bitmap::TEXT_SIZE];
  decoded->text = bitmap.ToString(text, sizeof text);
  decoded->number = bitmap.lead.IntegerGet();
  decoded->bits = BitsGet(bitmap, 0, bitmap.size);
  decoded->tail = BitsGet(bitmap, bitmap.size, whole);
}

}  // namespace

std::optional<std::vector<char>> HexBytesGet(const std::string& text) {
  std::vector<char> bytes;
  for (std::size_t i = 0; i < text.size();) {
    if (std::string(SEPARATORS).find(text[i]) != std::string::npos) {
      ++i;
      continue;
    }
    if (i + 1 >= text.size() || !IsHex(text[i]) || !IsHex(text[i + 1]))
      return std::nullopt;
    bytes.push_back(static_cast<char>(DigitGet(text[i]) * 16 + DigitGet(text[i + 1])));
    i += 2;
  }
  return bytes.empty() ? std::nullopt : std::optional(bytes);
}

Decoded DecodedGet(WireForm form, VORNCDRByteOrder order, std::vector<char> bytes) {
  Decoded decoded;
  decoded.form = form;
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes.data(), static_cast<int>(bytes.size()), order);
  if (form == WireForm::TIME)
    TimeDecode(&stream, &decoded);
  else if (form == WireForm::SEQUENCE_NUMBER)
    NumberDecode(&stream, &decoded);
  else
    BitmapDecode(&stream, &decoded);
  const auto used = static_cast<std::size_t>(VornCDRStreamPositionGet(&stream));
  if (decoded.error.empty() && used < bytes.size())
    decoded.error = LeftOverText(bytes.size(), used);
  return decoded;
}
