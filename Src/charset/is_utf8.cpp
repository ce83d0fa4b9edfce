#include "charset/is_utf8.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "charset/byte_words.h"

using charset::Byte;
using charset::HIGH_BITS;
using charset::LoadByteWord;

namespace {

// The validator reads a text in words of eight bytes, the first byte lowest. It computes with marks: the mark
// of a byte is its high bit. `owed` marks the continuation bytes that characters of earlier words still need
// in this word. This needs few branches; a branch for each character would often be mispredicted in mixed
// text.

uint64_t LoadLittleEndian(const Byte* utf8) {
  const uint64_t utf8Word = LoadByteWord(utf8);
  return std::endian::native == std::endian::little ? utf8Word : __builtin_bswap64(utf8Word);
}

// IsUtf8Word's steps for leads of more than three bytes.
bool AddLongUtf8Leads(uint64_t utf8Word, uint64_t utf8Leads, uint64_t& wanted, uint64_t& owed) {
  for (unsigned k = 3; utf8Leads != 0; utf8Leads &= utf8Word << ++k) {
    if (k == 6) return false;  // 0xFE, 0xFF
    wanted |= utf8Leads << (8 * k);
    owed |= utf8Leads >> (64 - 8 * k);
  }
  return true;
}

bool IsUtf8Word(uint64_t utf8Word, uint64_t& owed) {
  const uint64_t high = utf8Word & HIGH_BITS;
  const uint64_t utf8Leads = high & utf8Word << 1;
  const uint64_t utf8Leads3 = utf8Leads & utf8Word << 2;  // leads of three or more bytes
  const uint64_t utf8Leads4 = utf8Leads3 & utf8Word << 3;
  uint64_t wanted = owed | utf8Leads << 8 | utf8Leads3 << 16;
  owed = utf8Leads >> 56 | utf8Leads3 >> 48;
  if (utf8Leads4 != 0 && !AddLongUtf8Leads(utf8Word, utf8Leads4, wanted, owed)) return false;
  return wanted == (high ^ utf8Leads);
}

bool AreUtf8Words(const Byte* utf8, size_t utf8WordCount, uint64_t& owed) {
  for (size_t i = 0; i < utf8WordCount; i++)
    if (!IsUtf8Word(LoadLittleEndian(utf8 + i * 8), owed)) return false;
  return true;
}

constexpr ptrdiff_t UTF8_ASCII_BLOCK = 32;

// Returns 0 when the block is all ASCII.
uint64_t AsciiDifference(const Byte* utf8) {
  return (LoadByteWord(utf8) | LoadByteWord(utf8 + 8) | LoadByteWord(utf8 + 16) | LoadByteWord(utf8 + 24)) &
         HIGH_BITS;
}

// The size of eight three-byte characters.
constexpr ptrdiff_t UTF8_THREE_BYTES = 24;
using ThreeByteWords = std::array<uint64_t, UTF8_THREE_BYTES / 8>;

constexpr ThreeByteWords RepeatThreeByteUtf8(Byte lead, Byte continuation) {
  std::array<Byte, UTF8_THREE_BYTES> utf8{};
  for (size_t i = 0; i < utf8.size(); i++) utf8[i] = i % 3 == 0 ? lead : continuation;
  return std::bit_cast<ThreeByteWords>(utf8);
}

// Returns 0 when the block is eight whole three-byte characters.
uint64_t ThreeByteDifference(const Byte* utf8) {
  constexpr ThreeByteWords UTF8_MASK = RepeatThreeByteUtf8(0xF0, 0xC0);
  constexpr ThreeByteWords UTF8_WANTED = RepeatThreeByteUtf8(0xE0, 0x80);
  return ((LoadByteWord(utf8) & UTF8_MASK[0]) ^ UTF8_WANTED[0]) |
         ((LoadByteWord(utf8 + 8) & UTF8_MASK[1]) ^ UTF8_WANTED[1]) |
         ((LoadByteWord(utf8 + 16) & UTF8_MASK[2]) ^ UTF8_WANTED[2]);
}

}  // namespace

int is_UTF8(const char* str) {
  const auto* utf8 = reinterpret_cast<const Byte*>(str);
  const Byte* const utf8End = utf8 + std::strlen(str);
  uint64_t owed = 0;
  while (utf8End - utf8 >= UTF8_ASCII_BLOCK) {
    if ((owed | AsciiDifference(utf8)) == 0) {
      utf8 += UTF8_ASCII_BLOCK;
    } else if ((owed | ThreeByteDifference(utf8)) == 0) {
      utf8 += UTF8_THREE_BYTES;
    } else {
      // 32 is not a multiple of three, so a run of three-byte characters soon starts at a block.
      if (!AreUtf8Words(utf8, 4, owed)) return 0;
      utf8 += 32;
    }
  }
  const auto left = static_cast<size_t>(utf8End - utf8);
  std::array<Byte, UTF8_ASCII_BLOCK> utf8Tail{};
  std::memcpy(utf8Tail.data(), utf8, left);
  return AreUtf8Words(utf8Tail.data(), left / 8 + 1, owed) && owed == 0 ? 1 : 0;
}
