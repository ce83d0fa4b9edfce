#include "smtp/smtp_base64.h"

#include <endian.h>
#include <sys/mman.h>
#ifdef __x86_64__
#include <tmmintrin.h>
#endif
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/unique_handles.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr std::string_view BASE64_ALPHABET =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

using Base64Pairs = std::array<std::array<char, 2>, 4096>;  // the two characters for each value of 12 bits

constexpr Base64Pairs MakeBase64Pairs() {
  Base64Pairs base64Pairs{};
  for (size_t bits = 0; bits < base64Pairs.size(); ++bits)
    base64Pairs[bits] = {BASE64_ALPHABET[bits >> 6], BASE64_ALPHABET[bits & 63]};
  return base64Pairs;
}

constexpr Base64Pairs BASE64_PAIRS = MakeBase64Pairs();

constexpr size_t BASE64_LINE_CHARACTERS = 78;
constexpr std::string_view BASE64_LINE_ENDING = "\r\n";
constexpr size_t BASE64_LINE_BYTES = BASE64_LINE_CHARACTERS + BASE64_LINE_ENDING.size();
// Blocks of this size and above ask for huge pages: touching memory in steps of 4 KiB costs more than the
// encoding.
constexpr size_t HUGE_BASE64_FROM = size_t{4} << 20;

void PutBase64Pair(uint64_t bits, char* base64) {
  std::memcpy(base64, BASE64_PAIRS[bits & 0xFFFU].data(), 2);
}

void PutBase64Group(const unsigned char* data, char* base64) {
  const unsigned base64Group = unsigned{data[0]} << 16 | unsigned{data[1]} << 8 | data[2];
  PutBase64Pair(base64Group >> 12, base64);
  PutBase64Pair(base64Group, base64 + 2);
}

// Writes the base64 of the data without a terminator. Returns the end of what was written.
char* PutBase64(const unsigned char* data, size_t length, char* base64) {
  uint64_t base64Bits = 0;
  for (; length >= sizeof base64Bits; data += 6, length -= 6, base64 += 8) {
    std::memcpy(&base64Bits, data, sizeof base64Bits);
    base64Bits = be64toh(base64Bits);
    PutBase64Pair(base64Bits >> 52, base64);
    PutBase64Pair(base64Bits >> 40, base64 + 2);
    PutBase64Pair(base64Bits >> 28, base64 + 4);
    PutBase64Pair(base64Bits >> 16, base64 + 6);
  }
  for (; length >= 3; data += 3, length -= 3, base64 += 4) PutBase64Group(data, base64);
  if (length == 0) return base64;
  smtp_base64_encode_block(data, length, base64);
  return base64 + 4;
}

int Base64Length(size_t dataLength, size_t* base64Length) {
  return smtp_si_mul_size_t(dataLength / 3 + static_cast<size_t>(dataLength % 3 != 0), 4, base64Length);
}

// The size of the lines for so much data, and of a terminator. Data added in pieces never needs more.
int Base64LinesSize(size_t dataLength, size_t* linesSize) {
  if (Base64Length(dataLength, linesSize) != 0) return 1;
  return smtp_split_size(*linesSize, BASE64_LINE_CHARACTERS, BASE64_LINE_ENDING.size(), linesSize);
}

}  // namespace

void smtp_base64_encode_block(const unsigned char* block, size_t count, char* base64) {
  std::array<unsigned char, 3> base64Block{};
  std::memcpy(base64Block.data(), block, count);
  PutBase64Group(base64Block.data(), base64);
  std::memset(base64 + count + 1, '=', 3 - count);
}

char* smtp_base64_encode(const void* unencoded, size_t unencodedLength, size_t* base64Length) {
  if (unencodedLength == SIZE_MAX) unencodedLength = std::strlen(static_cast<const char*>(unencoded));
  size_t base64Size = 0;
  if (Base64Length(unencodedLength, &base64Size) != 0) return smtp_out_of_memory();
  if (smtp_si_add_size_t(base64Size, 4, &base64Size) != 0) return smtp_out_of_memory();
  auto* base64 = static_cast<char*>(std::calloc(base64Size, 1));
  if (base64 == nullptr) return nullptr;
  const char* base64End = PutBase64(static_cast<const unsigned char*>(unencoded), unencodedLength, base64);
  if (base64Length != nullptr) *base64Length = static_cast<size_t>(base64End - base64);
  return base64;
}

int smtp_base64_lines_writer::GrowBase64Lines(size_t more, bool ahead) {
  size_t base64Size = 0;
  if (smtp_si_add_size_t(base64Used_, more, &base64Size) != 0) return -1;
  if (base64Size <= base64Allocated_) return 0;
  if (ahead && smtp_si_add_size_t(base64Size, base64Allocated_, &base64Size) != 0) return -1;
  if (!base::Resize(base64Lines_, base64Size)) return -1;
  base64Allocated_ = base64Size;
  if (base64Size >= HUGE_BASE64_FROM) {
    const auto pageSize = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const size_t unaligned = pageSize - reinterpret_cast<uintptr_t>(base64Lines_.get()) % pageSize;
    // Only a hint: it may fail.
    ::madvise(base64Lines_.get() + unaligned, base64Size - unaligned, MADV_HUGEPAGE);
  }
  return 0;
}

int smtp_base64_lines_writer::ReserveBase64Lines(size_t dataLength) {
  size_t linesSize = 0;
  return Base64LinesSize(dataLength, &linesSize) != 0 ? -1 : GrowBase64Lines(linesSize, false);
}

void smtp_base64_two_lines_by_table(const unsigned char* data, char* base64) {
  // A line of 78 characters ends in the middle of a group of four: 19 groups and half of the 20th; the next
  // line has the other half and 19 more.
  std::array<char, 4> base64Middle{};
  PutBase64Group(data + 57, base64Middle.data());
  base64 = PutBase64(data, 57, base64);
  std::memcpy(base64, base64Middle.data(), 2);
  std::memcpy(base64 + 2, BASE64_LINE_ENDING.data(), BASE64_LINE_ENDING.size());
  std::memcpy(base64 + 4, base64Middle.data() + 2, 2);
  base64 = PutBase64(data + 60, 57, base64 + 6);
  std::memcpy(base64, BASE64_LINE_ENDING.data(), BASE64_LINE_ENDING.size());
}

#ifdef __x86_64__

namespace {

constexpr size_t SHUFFLED_BASE64_DATA = 12;  // bytes of data that make sixteen characters

// Returns the sixteen characters of twelve of these sixteen bytes. base64Shuffle moves each three bytes into
// the low bytes of one lane, the first of them highest.
[[gnu::target("ssse3")]] __m128i Base64Characters(__m128i unencoded, __m128i base64Shuffle) {
  const __m128i base64Groups = _mm_shuffle_epi8(unencoded, base64Shuffle);
  // Splits the 24 bits of each lane into four bytes of six bits, the first of them lowest.
  const __m128i firstSextet = _mm_srli_epi32(base64Groups, 18);
  const __m128i secondSextet = _mm_and_si128(_mm_srli_epi32(base64Groups, 4), _mm_set1_epi32(0x3F00));
  const __m128i thirdSextet = _mm_and_si128(_mm_slli_epi32(base64Groups, 10), _mm_set1_epi32(0x3F0000));
  const __m128i fourthSextet = _mm_and_si128(_mm_slli_epi32(base64Groups, 24), _mm_set1_epi32(0x3F000000));
  const __m128i highSextets = _mm_or_si128(firstSextet, secondSextet);
  const __m128i lowSextets = _mm_or_si128(thirdSextet, fourthSextet);
  const __m128i sextets = _mm_or_si128(highSextets, lowSextets);
  // The kind of a sextet selects the step from the sextet to its character: kind 13 for values 0 to 25, 0 for
  // 26 to 51, and 1 to 12 for each of the others.
  const __m128i capitalKind = _mm_and_si128(_mm_cmplt_epi8(sextets, _mm_set1_epi8(26)), _mm_set1_epi8(13));
  const __m128i sextetKind = _mm_or_si128(_mm_subs_epu8(sextets, _mm_set1_epi8(51)), capitalKind);
  constexpr char DIGIT = '0' - 52;
  const __m128i sextetSteps = _mm_setr_epi8('a' - 26, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT,
                                            DIGIT, DIGIT, '+' - 62, '/' - 63, 'A', 0, 0);
  return _mm_add_epi8(sextets, _mm_shuffle_epi8(sextetSteps, sextetKind));
}

// Writes the sixteen characters of the twelve bytes that begin skip bytes after data.
template <char skip>
[[gnu::target("ssse3")]] void PutShuffledBase64(const unsigned char* data, char* base64) {
  const __m128i base64Shuffle = _mm_add_epi8(
      _mm_setr_epi8(2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128), _mm_set1_epi8(skip));
  const __m128i unencoded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(base64), Base64Characters(unencoded, base64Shuffle));
}

[[gnu::target("ssse3")]] void TwoBase64LinesByShuffle(const unsigned char* data, char* base64) {
  for (size_t i = 0; i < 5; ++i) PutShuffledBase64<0>(data + i * SHUFFLED_BASE64_DATA, base64 + i * 16);
  // These are two characters too many for the line; the second line begins with them.
  std::memcpy(base64 + 80, base64 + 78, 2);
  BASE64_LINE_ENDING.copy(base64 + 78, BASE64_LINE_ENDING.size());
  for (size_t i = 5; i < 9; ++i) PutShuffledBase64<0>(data + i * SHUFFLED_BASE64_DATA, base64 + i * 16 + 2);
  // Each load reads sixteen bytes for twelve. This one reads from four bytes earlier, so that it ends with
  // the data.
  PutShuffledBase64<4>(data + 101, base64 + 142);
  BASE64_LINE_ENDING.copy(base64 + 158, BASE64_LINE_ENDING.size());
}

}  // namespace
#endif

smtp_base64_two_lines_t* smtp_base64_two_lines() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("ssse3") != 0) return TwoBase64LinesByShuffle;
#endif
  return smtp_base64_two_lines_by_table;
}

void smtp_base64_lines_writer::AddLastBase64Lines(const unsigned char* data, size_t length) {
  std::array<char, 2 * BASE64_LINE_CHARACTERS> base64{};
  const char* base64End = PutBase64(data, length, base64.data());
  const std::string_view encoded(base64.data(), static_cast<size_t>(base64End - base64.data()));
  const char* linesEnd =
      smtp_split_into(encoded, BASE64_LINE_CHARACTERS, BASE64_LINE_ENDING, base64Lines_.get() + base64Used_);
  base64Used_ = static_cast<size_t>(linesEnd - base64Lines_.get());
}

int smtp_base64_lines_writer::AddBase64Lines(const void* data, size_t length) {
  size_t linesSize = 0;
  if (Base64LinesSize(length, &linesSize) != 0 || GrowBase64Lines(linesSize, true) != 0) return -1;
  const auto* unencoded = static_cast<const unsigned char*>(data);
  const auto putTwoLines = smtp_base64_two_lines();
  for (; length >= TWO_BASE64_LINES_DATA;
       length -= TWO_BASE64_LINES_DATA, unencoded += TWO_BASE64_LINES_DATA) {
    putTwoLines(unencoded, base64Lines_.get() + base64Used_);
    base64Used_ += 2 * BASE64_LINE_BYTES;
  }
  if (length > 0) AddLastBase64Lines(unencoded, length);
  return 0;
}

base::UniqueText smtp_base64_lines_writer::FinishBase64Lines(size_t* linesLength) {
  const std::string_view base64Ending = base64Used_ == 0 ? BASE64_LINE_ENDING : "";
  if (GrowBase64Lines(base64Ending.size() + 1, false) != 0) return nullptr;
  base64Ending.copy(base64Lines_.get() + base64Used_, base64Ending.size());
  base64Used_ += base64Ending.size();
  base64Lines_.get()[base64Used_] = '\0';
  *linesLength = base64Used_;
  return std::move(base64Lines_);
}

char* smtp_base64_lines(const void* unencoded, size_t unencodedLength, size_t* linesLength) {
  if (unencodedLength == SIZE_MAX) unencodedLength = std::strlen(static_cast<const char*>(unencoded));
  smtp_base64_lines_writer base64Writer;
  if (base64Writer.ReserveBase64Lines(unencodedLength) != 0) return smtp_out_of_memory();
  if (base64Writer.AddBase64Lines(unencoded, unencodedLength) != 0) return smtp_out_of_memory();
  base::UniqueText base64Lines = base64Writer.FinishBase64Lines(linesLength);
  return base64Lines != nullptr ? base64Lines.release() : smtp_out_of_memory();
}
