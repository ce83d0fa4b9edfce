// Bytes of a text, eight at a time.
#ifndef CHARSET_BYTE_WORDS_H
#define CHARSET_BYTE_WORDS_H

#include <cstdint>
#include <cstring>

namespace charset {

using Byte = unsigned char;

// The high bit of each of the eight bytes. None is set in a word of ASCII.
inline constexpr uint64_t HIGH_BITS = 0x8080808080808080;

// Eight bytes in the processor's own order.
inline uint64_t LoadByteWord(const Byte* bytes) {
  uint64_t byteWord = 0;
  std::memcpy(&byteWord, bytes, sizeof byteWord);
  return byteWord;
}

}  // namespace charset

#endif
