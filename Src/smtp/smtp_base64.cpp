#include "smtp/smtp_base64.h"

#include <endian.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/owners.h"
#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_line_split.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr std::string_view ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto PAIRS = [] {
  std::array<std::array<char, 2>, 4096> pairs{};  // the two characters of 12 bits
  for (size_t bits = 0; bits < pairs.size(); ++bits) pairs[bits] = {ALPHABET[bits >> 6], ALPHABET[bits & 63]};
  return pairs;
}();

constexpr size_t LINE = 78;
constexpr std::string_view LINE_ENDING = "\r\n";
constexpr size_t LINE_SIZE = LINE + LINE_ENDING.size();
// Memory from here on is worth large pages: touching 4 KiB at a time costs more than the encoding.
constexpr size_t LARGE = size_t{4} << 20;

void PutPair(uint64_t bits, char* out) {
  std::memcpy(out, PAIRS[bits & 0xFFFU].data(), 2);
}

void PutGroup(const unsigned char* data, char* out) {
  const unsigned group = unsigned{data[0]} << 16 | unsigned{data[1]} << 8 | data[2];
  PutPair(group >> 12, out);
  PutPair(group, out + 2);
}

// Writes the base64 of the data without a terminator; returns its end.
char* EncodeInto(const unsigned char* data, size_t length, char* out) {
  uint64_t eight = 0;
  for (; length >= sizeof eight; data += 6, length -= 6, out += 8) {
    std::memcpy(&eight, data, sizeof eight);
    eight = be64toh(eight);
    PutPair(eight >> 52, out);
    PutPair(eight >> 40, out + 2);
    PutPair(eight >> 28, out + 4);
    PutPair(eight >> 16, out + 6);
  }
  for (; length >= 3; data += 3, length -= 3, out += 4) PutGroup(data, out);
  if (length == 0) return out;
  smtp_base64_encode_block(data, length, out);
  return out + 4;
}

int EncodedLength(size_t length, size_t* encoded) {
  return smtp_si_mul_size_t(length / 3 + static_cast<size_t>(length % 3 != 0), 4, encoded);
}

// The lines of this much data and a terminator; the same counted for pieces never comes to more.
int LinesSize(size_t dataLength, size_t* size) {
  if (EncodedLength(dataLength, size) != 0) return 1;
  return smtp_split_size(*size, LINE, LINE_ENDING.size(), size);
}

char* OutOfMemory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

void smtp_base64_encode_block(const unsigned char* block, size_t count, char* out) {
  std::array<unsigned char, 3> bytes{};
  std::memcpy(bytes.data(), block, count);
  PutGroup(bytes.data(), out);
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
  if (wanted >= LARGE) {
    const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const size_t skipped = page - reinterpret_cast<uintptr_t>(text_.get()) % page;
    ::madvise(text_.get() + skipped, wanted - skipped, MADV_HUGEPAGE);  // only advice: may fail
  }
  return 0;
}

int smtp_base64_lines_writer::Reserve(size_t dataLength) {
  size_t size = 0;
  return LinesSize(dataLength, &size) != 0 ? -1 : Grow(size, false);
}

void smtp_base64_two_lines_by_table(const unsigned char* data, char* out) {
  // 78 characters end in the middle of a group: 19 groups, half of the 20th, its other half, 19 more.
  std::array<char, 4> middle{};
  PutGroup(data + 57, middle.data());
  out = EncodeInto(data, 57, out);
  std::memcpy(out, middle.data(), 2);
  std::memcpy(out + 2, LINE_ENDING.data(), LINE_ENDING.size());
  std::memcpy(out + 4, middle.data() + 2, 2);
  out = EncodeInto(data + 60, 57, out + 6);
  std::memcpy(out, LINE_ENDING.data(), LINE_ENDING.size());
}

void smtp_base64_lines_writer::AddLast(const unsigned char* data, size_t length) {
  std::array<char, 2 * LINE> text{};
  const char* end = EncodeInto(data, length, text.data());
  const std::string_view encoded(text.data(), static_cast<size_t>(end - text.data()));
  used_ = static_cast<size_t>(smtp_split_into(encoded, LINE, LINE_ENDING, text_.get() + used_) - text_.get());
}

int smtp_base64_lines_writer::Add(const void* data, size_t length) {
  size_t size = 0;
  if (LinesSize(length, &size) != 0 || Grow(size, true) != 0) return -1;
  const auto* next = static_cast<const unsigned char*>(data);
  const auto twoLines = smtp_base64_two_lines();
  for (; length >= UNIT; length -= UNIT, next += UNIT, used_ += 2 * LINE_SIZE) {
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
