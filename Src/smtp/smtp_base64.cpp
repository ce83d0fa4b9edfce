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

constexpr std::string_view ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

using Base64Pairs = std::array<std::array<char, 2>, 4096>;  // the two characters for each value of 12 bits

constexpr Base64Pairs MakeBase64Pairs() {
  Base64Pairs pairs{};
  for (size_t bits = 0; bits < pairs.size(); ++bits) pairs[bits] = {ALPHABET[bits >> 6], ALPHABET[bits & 63]};
  return pairs;
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
  const unsigned group = unsigned{data[0]} << 16 | unsigned{data[1]} << 8 | data[2];
  PutBase64Pair(group >> 12, base64);
  PutBase64Pair(group, base64 + 2);
}

// Writes the base64 of the data without a terminator. Returns the end of what was written.
char* PutBase64(const unsigned char* data, size_t length, char* base64) {
  uint64_t eightBytes = 0;
  for (; length >= sizeof eightBytes; data += 6, length -= 6, base64 += 8) {
    std::memcpy(&eightBytes, data, sizeof eightBytes);
    eightBytes = be64toh(eightBytes);
    PutBase64Pair(eightBytes >> 52, base64);
    PutBase64Pair(eightBytes >> 40, base64 + 2);
    PutBase64Pair(eightBytes >> 28, base64 + 4);
    PutBase64Pair(eightBytes >> 16, base64 + 6);
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
  std::array<unsigned char, 3> group{};
  std::memcpy(group.data(), block, count);
  PutBase64Group(group.data(), base64);
  std::memset(base64 + count + 1, '=', 3 - count);
}

char* smtp_base64_encode(const void* data, size_t length, size_t* encodedLength) {
  if (length == SIZE_MAX) length = std::strlen(static_cast<const char*>(data));
  size_t size = 0;
  if (Base64Length(length, &size) != 0 || smtp_si_add_size_t(size, 4, &size) != 0)
    return smtp_out_of_memory();
  auto* encoded = static_cast<char*>(std::calloc(size, 1));
  if (encoded == nullptr) return nullptr;
  const char* base64End = PutBase64(static_cast<const unsigned char*>(data), length, encoded);
  if (encodedLength != nullptr) *encodedLength = static_cast<size_t>(base64End - encoded);
  return encoded;
}

int smtp_base64_lines_writer::GrowLines(size_t more, bool ahead) {
  size_t wantedSize = 0;
  if (smtp_si_add_size_t(linesUsed_, more, &wantedSize) != 0) return -1;
  if (wantedSize <= linesAllocated_) return 0;
  if (ahead && smtp_si_add_size_t(wantedSize, linesAllocated_, &wantedSize) != 0) return -1;
  if (!base::Resize(lines_, wantedSize)) return -1;
  linesAllocated_ = wantedSize;
  if (wantedSize >= HUGE_BASE64_FROM) {
    const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const size_t skipped = page - reinterpret_cast<uintptr_t>(lines_.get()) % page;
    // Only a hint: it may fail.
    ::madvise(lines_.get() + skipped, wantedSize - skipped, MADV_HUGEPAGE);
  }
  return 0;
}

int smtp_base64_lines_writer::ReserveLines(size_t dataLength) {
  size_t linesSize = 0;
  return Base64LinesSize(dataLength, &linesSize) != 0 ? -1 : GrowLines(linesSize, false);
}

void smtp_base64_two_lines_by_table(const unsigned char* data, char* base64) {
  // A line of 78 characters ends in the middle of a group of four: 19 groups and half of the 20th; the next
  // line has the other half and 19 more.
  std::array<char, 4> middleGroup{};
  PutBase64Group(data + 57, middleGroup.data());
  base64 = PutBase64(data, 57, base64);
  std::memcpy(base64, middleGroup.data(), 2);
  std::memcpy(base64 + 2, BASE64_LINE_ENDING.data(), BASE64_LINE_ENDING.size());
  std::memcpy(base64 + 4, middleGroup.data() + 2, 2);
  base64 = PutBase64(data + 60, 57, base64 + 6);
  std::memcpy(base64, BASE64_LINE_ENDING.data(), BASE64_LINE_ENDING.size());
}

#ifdef __x86_64__

namespace {

constexpr size_t SHUFFLED_DATA = 12;  // bytes of data that make sixteen characters

// Returns the sixteen characters of twelve of these sixteen bytes. shuffleOrder moves each three bytes into
// the low bytes of one lane, the first of them highest.
[[gnu::target("ssse3")]] __m128i Base64Characters(__m128i bytes, __m128i shuffleOrder) {
  const __m128i groups = _mm_shuffle_epi8(bytes, shuffleOrder);
  // Splits the 24 bits of each lane into four bytes of six bits, the first of them lowest.
  const __m128i first = _mm_srli_epi32(groups, 18);
  const __m128i second = _mm_and_si128(_mm_srli_epi32(groups, 4), _mm_set1_epi32(0x3F00));
  const __m128i third = _mm_and_si128(_mm_slli_epi32(groups, 10), _mm_set1_epi32(0x3F0000));
  const __m128i fourth = _mm_and_si128(_mm_slli_epi32(groups, 24), _mm_set1_epi32(0x3F000000));
  const __m128i sextets = _mm_or_si128(_mm_or_si128(first, second), _mm_or_si128(third, fourth));
  // The kind of a sextet selects the step from the sextet to its character: kind 13 for values 0 to 25, 0 for
  // 26 to 51, and 1 to 12 for each of the others.
  const __m128i capital = _mm_and_si128(_mm_cmplt_epi8(sextets, _mm_set1_epi8(26)), _mm_set1_epi8(13));
  const __m128i kind = _mm_or_si128(_mm_subs_epu8(sextets, _mm_set1_epi8(51)), capital);
  constexpr char DIGIT = '0' - 52;
  const __m128i steps = _mm_setr_epi8('a' - 26, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT,
                                      DIGIT, '+' - 62, '/' - 63, 'A', 0, 0);
  return _mm_add_epi8(sextets, _mm_shuffle_epi8(steps, kind));
}

// Writes the sixteen characters of the twelve bytes that begin skip bytes after data.
template <char skip>
[[gnu::target("ssse3")]] void PutShuffledBase64(const unsigned char* data, char* base64) {
  const __m128i shuffleOrder = _mm_add_epi8(
      _mm_setr_epi8(2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128), _mm_set1_epi8(skip));
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(base64), Base64Characters(bytes, shuffleOrder));
}

[[gnu::target("ssse3")]] void TwoBase64LinesByShuffle(const unsigned char* data, char* base64) {
  for (size_t i = 0; i < 5; ++i) PutShuffledBase64<0>(data + i * SHUFFLED_DATA, base64 + i * 16);
  // These are two characters too many for the line; the second line begins with them.
  std::memcpy(base64 + 80, base64 + 78, 2);
  BASE64_LINE_ENDING.copy(base64 + 78, BASE64_LINE_ENDING.size());
  for (size_t i = 5; i < 9; ++i) PutShuffledBase64<0>(data + i * SHUFFLED_DATA, base64 + i * 16 + 2);
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

void smtp_base64_lines_writer::AddLastLines(const unsigned char* data, size_t length) {
  std::array<char, 2 * BASE64_LINE_CHARACTERS> base64{};
  const char* base64End = PutBase64(data, length, base64.data());
  const std::string_view encoded(base64.data(), static_cast<size_t>(base64End - base64.data()));
  const char* linesEnd =
      smtp_split_into(encoded, BASE64_LINE_CHARACTERS, BASE64_LINE_ENDING, lines_.get() + linesUsed_);
  linesUsed_ = static_cast<size_t>(linesEnd - lines_.get());
}

int smtp_base64_lines_writer::AddLines(const void* data, size_t length) {
  size_t linesSize = 0;
  if (Base64LinesSize(length, &linesSize) != 0 || GrowLines(linesSize, true) != 0) return -1;
  const auto* unencoded = static_cast<const unsigned char*>(data);
  const auto putTwoLines = smtp_base64_two_lines();
  for (; length >= TWO_LINES_DATA; length -= TWO_LINES_DATA, unencoded += TWO_LINES_DATA) {
    putTwoLines(unencoded, lines_.get() + linesUsed_);
    linesUsed_ += 2 * BASE64_LINE_BYTES;
  }
  if (length > 0) AddLastLines(unencoded, length);
  return 0;
}

base::UniqueText smtp_base64_lines_writer::FinishLines(size_t* linesLength) {
  const std::string_view ending = linesUsed_ == 0 ? BASE64_LINE_ENDING : "";
  if (GrowLines(ending.size() + 1, false) != 0) return nullptr;
  ending.copy(lines_.get() + linesUsed_, ending.size());
  linesUsed_ += ending.size();
  lines_.get()[linesUsed_] = '\0';
  *linesLength = linesUsed_;
  return std::move(lines_);
}

char* smtp_base64_lines(const void* data, size_t length, size_t* linesLength) {
  if (length == SIZE_MAX) length = std::strlen(static_cast<const char*>(data));
  smtp_base64_lines_writer writer;
  if (writer.ReserveLines(length) != 0 || writer.AddLines(data, length) != 0) return smtp_out_of_memory();
  base::UniqueText lines = writer.FinishLines(linesLength);
  return lines != nullptr ? lines.release() : smtp_out_of_memory();
}
