#include "charset/cp949.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/unique_handles.h"
#include "charset/byte_words.h"
#include "charset/cp949_utf8_forms.h"
#include "charset/utf8_text.h"

using charset::Byte;
using charset::CP949_UTF8_FORMS;
using charset::HIGH_BITS;
using charset::LoadByteWord;

namespace {

constexpr uint32_t FIRST_HANGUL_SYLLABLE = 0xAC00;
// Twice the length of a text has to stay a signed 32-bit number.
constexpr uint32_t MAX_CP949_SIZE = 0x3FFFFFFF;

// Copies the ASCII bytes at the start of the len bytes of code page 949. Returns their number.
size_t CopyAscii(const Byte* cp949, size_t len, Byte* utf8) {
  size_t i = 0;
  for (; len - i >= 16; i += 16) {
    const uint64_t firstCp949 = LoadByteWord(cp949 + i);
    const uint64_t secondCp949 = LoadByteWord(cp949 + i + 8);
    if (((firstCp949 | secondCp949) & HIGH_BITS) != 0) break;
    std::memcpy(utf8 + i, &firstCp949, sizeof firstCp949);
    std::memcpy(utf8 + i + 8, &secondCp949, sizeof secondCp949);
  }
  for (; i < len && cp949[i] < 0x80; i++) utf8[i] = cp949[i];
  return i;
}

// The size that EncodeCp949 needs: three bytes for each two, three for a lead byte at the end, and one
// because each character is stored as four bytes.
constexpr size_t EncodedRoom(size_t cp949Size) {
  return cp949Size / 2 * 3 + 3 + 1;
}

// Returns the number of bytes written to utf8, or -1 at a code outside the table.
ptrdiff_t EncodeCp949(const Byte* cp949, size_t len, Byte* utf8) {
  Byte* const encodedStart = utf8;
  size_t i = 0;
  while (i < len) {
    if (cp949[i] < 0x80) {
      const size_t cp949Ascii = CopyAscii(cp949 + i, len - i, utf8);
      i += cp949Ascii;
      utf8 += cp949Ascii;
      continue;
    }
    // Wraps around below the first code.
    const uint32_t cp949Index = cp949[i] * 256U + cp949[i + 1] - charset::FIRST_CP949_CODE;
    if (cp949Index >= CP949_UTF8_FORMS.size()) return -1;
    const charset::Cp949Utf8Form& form = CP949_UTF8_FORMS[cp949Index];
    std::memcpy(utf8, &form, sizeof form);
    utf8 += form.length;
    i += 2;
  }
  return utf8 - encodedStart;
}

// Reads the second and third byte only if those before them fit a three-byte character.
bool MayBeHangul(const Byte* hangul) {
  return (hangul[0] & 0xF0) == 0xE0 && charset::IsUtf8Continuation(hangul[1]) &&
         charset::IsUtf8Continuation(hangul[2]);
}

// Returns the code of a three-byte character, or 0 when it is no Hangul syllable.
uint16_t HangulSyllableCode(const Byte* hangul) {
  const uint32_t hangulPoint = (hangul[0] & 0x0FU) << 12 | (hangul[1] & 0x3FU) << 6 | (hangul[2] & 0x3FU);
  const uint32_t syllable = hangulPoint - FIRST_HANGUL_SYLLABLE;  // wraps around below the first one
  return syllable < std::size(uni2ksc_code) ? uni2ksc_code[syllable] : 0;
}

}  // namespace

int32_t encode_UTF8(const char* src, uint32_t len, char** out, uint32_t* out_len) {
  if (len > MAX_CP949_SIZE) return -1;
  base::UniqueText encodedCp949(static_cast<char*>(std::malloc(EncodedRoom(len))));
  if (encodedCp949 == nullptr) return -1;
  const ptrdiff_t encodedCp949Length =
      EncodeCp949(reinterpret_cast<const Byte*>(src), len, reinterpret_cast<Byte*>(encodedCp949.get()));
  if (encodedCp949Length < 0) return -1;
  encodedCp949.get()[encodedCp949Length] = '\0';

  char* const roomyEncoded = encodedCp949.release();
  auto* const fittedEncoded =
      static_cast<char*>(std::realloc(roomyEncoded, static_cast<size_t>(encodedCp949Length) + 1));
  *out = fittedEncoded != nullptr ? fittedEncoded : roomyEncoded;
  *out_len = static_cast<uint32_t>(encodedCp949Length);
  return 0;
}

int32_t decode_UTF8(const char* src, int32_t len, char* dst, int32_t cap) {
  if (cap <= 0) return -1;
  const auto* const utf8 = reinterpret_cast<const Byte*>(src);
  int64_t i = 0;
  int64_t cp949Written = 0;
  while (i < len) {
    if (MayBeHangul(utf8 + i)) {
      const uint16_t hangulCode = HangulSyllableCode(utf8 + i);
      if (hangulCode == 0) {
        dst[cp949Written] = ' ';
        return -1;
      }
      dst[cp949Written] = static_cast<char>(hangulCode >> 8);
      if (cp949Written + 1 < cap) dst[cp949Written + 1] = static_cast<char>(hangulCode & 0xFF);
      cp949Written += 2;
      i += 3;
    } else {
      dst[cp949Written++] = utf8[i] < 0x80 ? src[i] : ' ';
      i++;
    }
    if (cp949Written >= cap) return -1;
  }
  dst[cp949Written] = '\0';
  return static_cast<int32_t>(cp949Written);
}
