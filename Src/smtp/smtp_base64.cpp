#include "smtp/smtp_base64.h"

#include <endian.h>
#include <sys/mman.h>
#ifdef __x86_64__
#include <tmmintrin.h>
#endif
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/unique_handles.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr std::string_view ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

using Pairs = std::array<std::array<char, 2>, 4096>;  // the two characters for each value of 12 bits

constexpr Pairs MakePairs() {
  Pairs pairs{};
  for (size_t bits = 0; bits < pairs.size(); ++bits) pairs[bits] = {ALPHABET[bits >> 6], ALPHABET[bits & 63]};
  return pairs;
}

constexpr Pairs PAIRS = MakePairs();

constexpr size_t LINE_CHARACTERS = 78;
constexpr std::string_view LINE_ENDING = "\r\n";
constexpr size_t LINE_BYTES = LINE_CHARACTERS + LINE_ENDING.size();
// Blocks of this size and above ask for huge pages: touching memory in steps of 4 KiB costs more than the
// encoding.
constexpr size_t HUGE_PAGES_FROM = size_t{4} << 20;

void PutBase64Pair(uint64_t bits, char* out) {
  std::memcpy(out, PAIRS[bits & 0xFFFU].data(), 2);
}

void PutBase64Group(const unsigned char* data, char* out) {
  const unsigned group = unsigned{data[0]} << 16 | unsigned{data[1]} << 8 | data[2];
  PutBase64Pair(group >> 12, out);
  PutBase64Pair(group, out + 2);
}

// Writes the base64 of the data without a terminator. Returns the end of what was written.
char* EncodeInto(const unsigned char* data, size_t length, char* out) {
  uint64_t eight = 0;
  for (; length >= sizeof eight; data += 6, length -= 6, out += 8) {
    std::memcpy(&eight, data, sizeof eight);
    eight = be64toh(eight);
    PutBase64Pair(eight >> 52, out);
    PutBase64Pair(eight >> 40, out + 2);
    PutBase64Pair(eight >> 28, out + 4);
    PutBase64Pair(eight >> 16, out + 6);
  }
  for (; length >= 3; data += 3, length -= 3, out += 4) PutBase64Group(data, out);
  if (length == 0) return out;
  smtp_base64_encode_block(data, length, out);
  return out + 4;
}

int EncodedLength(size_t length, size_t* encoded) {
  return smtp_si_mul_size_t(length / 3 + static_cast<size_t>(length % 3 != 0), 4, encoded);
}

// The size of the lines for so much data, and of a terminator. Data added in pieces never needs more.
int LinesSize(size_t dataLength, size_t* size) {
  if (EncodedLength(dataLength, size) != 0) return 1;
  return smtp_split_size(*size, LINE_CHARACTERS, LINE_ENDING.size(), size);
}

char* OutOfMemory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

void smtp_base64_encode_block(const unsigned char* block, size_t count, char* out) {
  std::array<unsigned char, 3> bytes{};
  std::memcpy(bytes.data(), block, count);
  PutBase64Group(bytes.data(), out);
  std::memset(out + count + 1, '=', 3 - count);
}

char* smtp_base64_encode(const void* data, size_t length, size_t* encodedLength) {
  if (length == SIZE_MAX) length = std::strlen(static_cast<const char*>(data));
  size_t size = 0;
  if (EncodedLength(length, &size) != 0 || smtp_si_add_size_t(size, 4, &size) != 0) return OutOfMemory();
  auto* result = static_cast<char*>(std::calloc(size, 1));
  if (result == nullptr) return nullptr;
  const char* end = EncodeInto(static_cast<const unsigned char*>(data), length, result);
  if (encodedLength != nullptr) *encodedLength = static_cast<size_t>(end - result);
  return result;
}

int smtp_base64_lines_writer::Grow(size_t more, bool ahead) {
  size_t wanted = 0;
  if (smtp_si_add_size_t(used_, more, &wanted) != 0) return -1;
  if (wanted <= allocated_) return 0;
  if (ahead && smtp_si_add_size_t(wanted, allocated_, &wanted) != 0) return -1;
  if (!base::Resize(text_, wanted)) return -1;
  allocated_ = wanted;
  if (wanted >= HUGE_PAGES_FROM) {
    const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const size_t skipped = page - reinterpret_cast<uintptr_t>(text_.get()) % page;
    // Only a hint: it may fail.
    ::madvise(text_.get() + skipped, wanted - skipped, MADV_HUGEPAGE);
  }
  return 0;
}

int smtp_base64_lines_writer::Reserve(size_t dataLength) {
  size_t size = 0;
  return LinesSize(dataLength, &size) != 0 ? -1 : Grow(size, false);
}

void smtp_base64_two_lines_by_table(const unsigned char* data, char* out) {
  // A line of 78 characters ends in the middle of a group of four: 19 groups and half of the 20th; the next
  // line has the other half and 19 more.
  std::array<char, 4> middle{};
  PutBase64Group(data + 57, middle.data());
  out = EncodeInto(data, 57, out);
  std::memcpy(out, middle.data(), 2);
  std::memcpy(out + 2, LINE_ENDING.data(), LINE_ENDING.size());
  std::memcpy(out + 4, middle.data() + 2, 2);
  out = EncodeInto(data + 60, 57, out + 6);
  std::memcpy(out, LINE_ENDING.data(), LINE_ENDING.size());
}

#ifdef __x86_64__

namespace {

constexpr size_t SHUFFLE_BLOCK = 12;  // bytes of data that make sixteen characters

// Returns the sixteen characters of twelve of these sixteen bytes. order moves each three bytes into the low
// bytes of one lane, the first of them highest.
[[gnu::target("ssse3")]] __m128i Base64Characters(__m128i bytes, __m128i order) {
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
[[gnu::target("ssse3")]] void PutShuffled(const unsigned char* from, char* out) {
  const __m128i order = _mm_add_epi8(
      _mm_setr_epi8(2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128), _mm_set1_epi8(skip));
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), Base64Characters(bytes, order));
}

[[gnu::target("ssse3")]] void TwoLinesByShuffle(const unsigned char* data, char* out) {
  for (size_t i = 0; i < 5; ++i) PutShuffled<0>(data + i * SHUFFLE_BLOCK, out + i * 16);
  // These are two characters too many for the line; the second line begins with them.
  std::memcpy(out + 80, out + 78, 2);
  LINE_ENDING.copy(out + 78, LINE_ENDING.size());
  for (size_t i = 5; i < 9; ++i) PutShuffled<0>(data + i * SHUFFLE_BLOCK, out + i * 16 + 2);
  // Each load reads sixteen bytes for twelve. This one reads from four bytes earlier, so that it ends with
  // the data.
  PutShuffled<4>(data + 101, out + 142);
  LINE_ENDING.copy(out + 158, LINE_ENDING.size());
}

}  // namespace
#endif

smtp_base64_two_lines_t* smtp_base64_two_lines() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("ssse3") != 0) return TwoLinesByShuffle;
#endif
  return smtp_base64_two_lines_by_table;
}

void smtp_base64_lines_writer::AddLast(const unsigned char* data, size_t length) {
  std::array<char, 2 * LINE_CHARACTERS> text{};
  const char* end = EncodeInto(data, length, text.data());
  const std::string_view encoded(text.data(), static_cast<size_t>(end - text.data()));
  used_ = static_cast<size_t>(smtp_split_into(encoded, LINE_CHARACTERS, LINE_ENDING, text_.get() + used_) -
                              text_.get());
}

int smtp_base64_lines_writer::Add(const void* data, size_t length) {
  size_t size = 0;
  if (LinesSize(length, &size) != 0 || Grow(size, true) != 0) return -1;
  const auto* next = static_cast<const unsigned char*>(data);
  const auto twoLines = smtp_base64_two_lines();
  for (; length >= UNIT; length -= UNIT, next += UNIT, used_ += 2 * LINE_BYTES) {
    twoLines(next, text_.get() + used_);
  }
  if (length > 0) AddLast(next, length);
  return 0;
}

base::UniqueText smtp_base64_lines_writer::Finish(size_t* length) {
  const std::string_view ending = used_ == 0 ? LINE_ENDING : "";
  if (Grow(ending.size() + 1, false) != 0) return nullptr;
  ending.copy(text_.get() + used_, ending.size());
  used_ += ending.size();
  text_.get()[used_] = '\0';
  *length = used_;
  return std::move(text_);
}

char* smtp_base64_lines(const void* data, size_t length, size_t* linesLength) {
  if (length == SIZE_MAX) length = std::strlen(static_cast<const char*>(data));
  smtp_base64_lines_writer lines;
  if (lines.Reserve(length) != 0 || lines.Add(data, length) != 0) return OutOfMemory();
  base::UniqueText text = lines.Finish(linesLength);
  return text != nullptr ? text.release() : OutOfMemory();
}
