#include <cstring>
#include <string_view>

#include "smtp/smtp_base64_lines.h"

#ifdef __x86_64__
#include <tmmintrin.h>

namespace {

constexpr size_t BLOCK = 12;  // bytes of data that make sixteen characters
constexpr std::string_view ENDING = "\r\n";

// Returns the sixteen characters of twelve of these sixteen bytes. order moves each three bytes into the low
// bytes of one lane, the first of them highest.
[[gnu::target("ssse3")]] __m128i Characters(__m128i bytes, __m128i order) {
  const __m128i groups = _mm_shuffle_epi8(bytes, order);
  // Splits the 24 bits of each lane into four bytes of six bits, the first of them lowest.
  const __m128i first = _mm_srli_epi32(groups, 18);
  const __m128i second = _mm_and_si128(_mm_srli_epi32(groups, 4), _mm_set1_epi32(0x3F00));
  const __m128i third = _mm_and_si128(_mm_slli_epi32(groups, 10), _mm_set1_epi32(0x3F0000));
  const __m128i fourth = _mm_and_si128(_mm_slli_epi32(groups, 24), _mm_set1_epi32(0x3F000000));
  const __m128i values = _mm_or_si128(_mm_or_si128(first, second), _mm_or_si128(third, fourth));
  // The kind of a value selects the step from the value to its character: kind 13 for values 0 to 25, 0 for
  // 26 to 51, and 1 to 12 for each of the others.
  const __m128i capital = _mm_and_si128(_mm_cmplt_epi8(values, _mm_set1_epi8(26)), _mm_set1_epi8(13));
  const __m128i kind = _mm_or_si128(_mm_subs_epu8(values, _mm_set1_epi8(51)), capital);
  constexpr char DIGIT = '0' - 52;
  const __m128i steps = _mm_setr_epi8('a' - 26, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT,
                                      DIGIT, '+' - 62, '/' - 63, 'A', 0, 0);
  return _mm_add_epi8(values, _mm_shuffle_epi8(steps, kind));
}

// Writes the sixteen characters of the twelve bytes that begin skip bytes after from.
template <char skip>
[[gnu::target("ssse3")]] void PutBlock(const unsigned char* from, char* out) {
  const __m128i order = _mm_add_epi8(
      _mm_setr_epi8(2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128), _mm_set1_epi8(skip));
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), Characters(bytes, order));
}

[[gnu::target("ssse3")]] void TwoLinesByShuffle(const unsigned char* data, char* out) {
  for (size_t i = 0; i < 5; ++i) PutBlock<0>(data + i * BLOCK, out + i * 16);
  // These are two characters too many for the line; the second line begins with them.
  std::memcpy(out + 80, out + 78, 2);
  ENDING.copy(out + 78, ENDING.size());
  for (size_t i = 5; i < 9; ++i) PutBlock<0>(data + i * BLOCK, out + i * 16 + 2);
  // Each load reads sixteen bytes for twelve. This one reads from four bytes earlier, so that it ends with
  // the data.
  PutBlock<4>(data + 101, out + 142);
  ENDING.copy(out + 158, ENDING.size());
}

}  // namespace
#endif

smtp_base64_two_lines_t* smtp_base64_two_lines() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("ssse3") != 0) return TwoLinesByShuffle;
#endif
  return smtp_base64_two_lines_by_table;
}
