#include "charset/cp949.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/unique_handles.h"
#include "charset/utf8_form.h"

namespace {

using Byte = unsigned char;

constexpr uint32_t kFirstCode = 0x8141;
constexpr uint32_t kFirstSyllable = 0xAC00;
// Twice the length of a text has to stay a signed 32-bit number.
constexpr uint32_t kMaxSourceLen = 0x3FFFFFFF;

constexpr uint64_t kHighBits = 0x8080808080808080;

uint64_t Load64(const Byte* in) {
  uint64_t word = 0;
  std::memcpy(&word, in, sizeof word);
  return word;
}

uint64_t LoadLittleEndian(const Byte* in) {
  const uint64_t word = Load64(in);
  return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

bool IsContinuation(Byte byte) {
  return (byte & 0xC0) == 0x80;
}

// Copies the ASCII bytes at the start of the len bytes at in. Returns their number.
size_t CopyAscii(const Byte* in, size_t len, Byte* out) {
  size_t i = 0;
  for (; len - i >= 16; i += 16) {
    const uint64_t first = Load64(in + i);
    const uint64_t second = Load64(in + i + 8);
    if (((first | second) & kHighBits) != 0) break;
    std::memcpy(out + i, &first, sizeof first);
    std::memcpy(out + i + 8, &second, sizeof second);
  }
  for (; i < len && in[i] < 0x80; i++) out[i] = in[i];
  return i;
}

// The size that Encode needs: three bytes for each two, three for a lead byte at the end, and one because
// each character is stored as four bytes.
constexpr size_t EncodedRoom(size_t len) {
  return len / 2 * 3 + 3 + 1;
}

// Returns the number of bytes written to out, or -1 at a code outside the table.
ptrdiff_t Encode(const Byte* in, size_t len, Byte* out) {
  Byte* const start = out;
  size_t i = 0;
  while (i < len) {
    if (in[i] < 0x80) {
      const size_t run = CopyAscii(in + i, len - i, out);
      i += run;
      out += run;
      continue;
    }
    const uint32_t index = in[i] * 256U + in[i + 1] - kFirstCode;  // wraps around below the first code
    if (index >= charset::kUtf8Forms.size()) return -1;
    const charset::Utf8Form& form = charset::kUtf8Forms[index];
    std::memcpy(out, &form, sizeof form);
    out += form.length;
    i += 2;
  }
  return out - start;
}

// Reads in[1] and in[2] only if the bytes before them fit a three-byte character.
bool IsThreeByteCharacter(const Byte* in) {
  return (in[0] & 0xF0) == 0xE0 && IsContinuation(in[1]) && IsContinuation(in[2]);
}

// Returns the code of a three-byte character, or 0 when it is no Hangul syllable.
uint16_t SyllableCode(const Byte* in) {
  const uint32_t c = (in[0] & 0x0FU) << 12 | (in[1] & 0x3FU) << 6 | (in[2] & 0x3FU);
  const uint32_t index = c - kFirstSyllable;  // wraps around below the first syllable
  return index < std::size(uni2ksc_code) ? uni2ksc_code[index] : 0;
}

// The validator reads a text in words of eight bytes, the first byte lowest. It computes with marks: the mark
// of a byte is its high bit. `owed` marks the continuation bytes that characters of earlier words still need
// in this word. This needs few branches; a branch for each character would often be mispredicted in mixed
// text.

// CheckWord's steps for leads of more than three bytes.
bool AddLongForms(uint64_t word, uint64_t leads, uint64_t& wanted, uint64_t& owed) {
  for (unsigned k = 3; leads != 0; leads &= word << ++k) {
    if (k == 6) return false;  // 0xFE, 0xFF
    wanted |= leads << (8 * k);
    owed |= leads >> (64 - 8 * k);
  }
  return true;
}

bool CheckWord(uint64_t word, uint64_t& owed) {
  const uint64_t high = word & kHighBits;
  const uint64_t leads = high & word << 1;
  const uint64_t leads3 = leads & word << 2;  // leads of three or more bytes
  const uint64_t leads4 = leads3 & word << 3;
  uint64_t wanted = owed | leads << 8 | leads3 << 16;
  owed = leads >> 56 | leads3 >> 48;
  if (leads4 != 0 && !AddLongForms(word, leads4, wanted, owed)) return false;
  return wanted == (high ^ leads);
}

bool CheckWords(const Byte* in, size_t count, uint64_t& owed) {
  for (size_t i = 0; i < count; i++)
    if (!CheckWord(LoadLittleEndian(in + i * 8), owed)) return false;
  return true;
}

constexpr ptrdiff_t kAsciiBlock = 32;

// Returns 0 when the block is all ASCII.
uint64_t AsciiDifference(const Byte* in) {
  return (Load64(in) | Load64(in + 8) | Load64(in + 16) | Load64(in + 24)) & kHighBits;
}

// The size of eight three-byte characters.
constexpr ptrdiff_t kThreeByteBlock = 24;
using ThreeByteWords = std::array<uint64_t, kThreeByteBlock / 8>;

constexpr ThreeByteWords RepeatThree(Byte lead, Byte continuation) {
  std::array<Byte, kThreeByteBlock> bytes{};
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = i % 3 == 0 ? lead : continuation;
  return std::bit_cast<ThreeByteWords>(bytes);
}

// Returns 0 when the block is eight whole three-byte characters.
uint64_t ThreeByteDifference(const Byte* in) {
  constexpr ThreeByteWords kMask = RepeatThree(0xF0, 0xC0);
  constexpr ThreeByteWords kWanted = RepeatThree(0xE0, 0x80);
  return ((Load64(in) & kMask[0]) ^ kWanted[0]) | ((Load64(in + 8) & kMask[1]) ^ kWanted[1]) |
         ((Load64(in + 16) & kMask[2]) ^ kWanted[2]);
}

}  // namespace

int32_t encode_UTF8(const char* src, uint32_t len, char** out, uint32_t* out_len) {
  if (len > kMaxSourceLen) return -1;
  base::UniqueText text(static_cast<char*>(std::malloc(EncodedRoom(len))));
  if (text == nullptr) return -1;
  const ptrdiff_t n = Encode(reinterpret_cast<const Byte*>(src), len, reinterpret_cast<Byte*>(text.get()));
  if (n < 0) return -1;
  text.get()[n] = '\0';

  char* const whole = text.release();
  auto* const fitted = static_cast<char*>(std::realloc(whole, static_cast<size_t>(n) + 1));
  *out = fitted != nullptr ? fitted : whole;
  *out_len = static_cast<uint32_t>(n);
  return 0;
}

int32_t decode_UTF8(const char* src, int32_t len, char* dst, int32_t cap) {
  if (cap <= 0) return -1;
  const auto* const in = reinterpret_cast<const Byte*>(src);
  int64_t i = 0;
  int64_t p = 0;
  while (i < len) {
    if (IsThreeByteCharacter(in + i)) {
      const uint16_t code = SyllableCode(in + i);
      if (code == 0) {
        dst[p] = ' ';
        return -1;
      }
      dst[p] = static_cast<char>(code >> 8);
      if (p + 1 < cap) dst[p + 1] = static_cast<char>(code & 0xFF);
      p += 2;
      i += 3;
    } else {
      dst[p++] = in[i] < 0x80 ? src[i] : ' ';
      i++;
    }
    if (p >= cap) return -1;
  }
  dst[p] = '\0';
  return static_cast<int32_t>(p);
}

int is_UTF8(const char* str) {
  const auto* in = reinterpret_cast<const Byte*>(str);
  const Byte* const end = in + std::strlen(str);
  uint64_t owed = 0;
  while (end - in >= kAsciiBlock) {
    if ((owed | AsciiDifference(in)) == 0) {
      in += kAsciiBlock;
    } else if ((owed | ThreeByteDifference(in)) == 0) {
      in += kThreeByteBlock;
    } else {
      // 32 is not a multiple of three, so a run of three-byte characters soon starts at a block.
      if (!CheckWords(in, 4, owed)) return 0;
      in += 32;
    }
  }
  const auto left = static_cast<size_t>(end - in);
  std::array<Byte, kAsciiBlock> tail{};
  std::memcpy(tail.data(), in, left);
  return CheckWords(tail.data(), left / 8 + 1, owed) && owed == 0 ? 1 : 0;
}
