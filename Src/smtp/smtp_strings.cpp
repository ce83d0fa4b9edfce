#include "smtp/smtp_strings.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/unique_handles.h"

using base::UniqueText;

int smtp_si_add_size_t(size_t a, size_t b, size_t* result) {
  return __builtin_add_overflow(a, b, result) ? 1 : 0;
}

int smtp_si_sub_size_t(size_t a, size_t b, size_t* result) {
  return __builtin_sub_overflow(a, b, result) ? 1 : 0;
}

int smtp_si_mul_size_t(size_t a, size_t b, size_t* result) {
  return __builtin_mul_overflow(a, b, result) ? 1 : 0;
}

void* smtp_reallocarray(void* block, size_t count, size_t size) {
  size_t total = 0;
  if (smtp_si_mul_size_t(count, size, &total) != 0) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::realloc(block, total);
}

char* smtp_strdup(const char* text) {
  const size_t size = std::strlen(text) + 1;
  void* copy = std::malloc(size);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, size));
}

char* smtp_stpcpy(char* destination, const char* text) {
  const size_t length = std::strlen(text);
  std::memcpy(destination, text, length + 1);
  return destination + length;
}

namespace {

size_t CountOccurrences(const char* text, const char* search, size_t searchLength) {
  size_t count = 0;
  for (const char* at = std::strstr(text, search); at != nullptr;
       at = std::strstr(at + searchLength, search)) {
    ++count;
  }
  return count;
}

// Computes length - count * removed + count * added + 1. Returns 1 on overflow, else 0.
int ReplacedSize(size_t length, size_t count, size_t removed, size_t added, size_t* size) {
  size_t gone = 0;
  size_t come = 0;
  return static_cast<int>(
      smtp_si_mul_size_t(count, removed, &gone) != 0 || smtp_si_mul_size_t(count, added, &come) != 0 ||
      smtp_si_sub_size_t(length, gone, size) != 0 || smtp_si_add_size_t(*size, come, size) != 0 ||
      smtp_si_add_size_t(*size, 1, size) != 0);
}

}  // namespace

char* smtp_str_replace(const char* search, const char* replace, const char* text) {
  const size_t searchLength = std::strlen(search);
  const size_t replaceLength = std::strlen(replace);
  if (searchLength == 0) return smtp_strdup(text);
  size_t size = 0;
  if (ReplacedSize(std::strlen(text), CountOccurrences(text, search, searchLength), searchLength,
                   replaceLength, &size) != 0) {
    errno = ENOMEM;
    return nullptr;
  }
  auto* result = static_cast<char*>(std::malloc(size));
  if (result == nullptr) return nullptr;
  char* out = result;
  for (const char* at = std::strstr(text, search); at != nullptr; at = std::strstr(text, search)) {
    std::memcpy(out, text, static_cast<size_t>(at - text));
    out = smtp_stpcpy(out + (at - text), replace);
    text = at + searchLength;
  }
  smtp_stpcpy(out, text);
  return result;
}

size_t smtp_utf8_charlen(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  if (byte < 0x80) return 1;
  if (byte < 0xC0) return 0;
  if (byte < 0xE0) return 2;
  if (byte < 0xF0) return 3;
  return byte < 0xF8 ? 4 : 0;
}

namespace {

// The length of the text's ASCII prefix, in steps of 8 bytes.
size_t AsciiPrefix(std::string_view text) {
  size_t at = 0;
  uint64_t word = 0;
  while (text.size() - at >= sizeof word) {
    std::memcpy(&word, text.data() + at, sizeof word);
    if ((word & 0x8080808080808080U) != 0) break;
    at += sizeof word;
  }
  return at;
}

}  // namespace

size_t smtp_strnlen_utf8(std::string_view text, size_t minimum) {
  size_t length = AsciiPrefix(text.substr(0, minimum));
  while (length < minimum && length < text.size()) {
    const size_t character = smtp_utf8_charlen(text[length]);
    if (character == 0) return SIZE_MAX;
    length += character;
  }
  return length < text.size() ? length : text.size();
}

int smtp_str_has_nonascii_utf8(const char* text) {
  for (; *text != '\0'; ++text) {
    if ((static_cast<unsigned char>(*text) & 0x80U) != 0) return 1;
  }
  return 0;
}

char* smtp_split_into(std::string_view text, size_t n, std::string_view ending, char* out) {
  while (!text.empty()) {
    const size_t piece = smtp_strnlen_utf8(text, n);
    if (piece == SIZE_MAX) return nullptr;
    std::memcpy(out, text.data(), piece);
    std::memcpy(out + piece, ending.data(), ending.size());
    out += piece + ending.size();
    text.remove_prefix(piece);
  }
  return out;
}

int smtp_split_size(size_t length, size_t n, size_t ending, size_t* size) {
  const size_t pieces = length / n + static_cast<size_t>(length % n != 0);
  return static_cast<int>(smtp_si_mul_size_t(pieces, ending, size) != 0 ||
                          smtp_si_add_size_t(*size, length, size) != 0 ||
                          smtp_si_add_size_t(*size, 1, size) != 0);
}

char* smtp_chunk_split(const char* text, size_t n, const char* ending) {
  if (n == 0) {
    errno = EINVAL;
    return nullptr;
  }
  if (*text == '\0') return smtp_strdup(ending);
  const std::string_view whole(text);
  size_t size = 0;
  if (smtp_split_size(whole.size(), n, std::strlen(ending), &size) != 0) {
    errno = ENOMEM;
    return nullptr;
  }
  UniqueText result(static_cast<char*>(std::malloc(size)));
  if (result == nullptr) return nullptr;
  char* end = smtp_split_into(whole, n, ending, result.get());
  if (end == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  *end = '\0';
  return result.release();
}

bool smtp_text_rule::Allows(char c) const {
  const auto byte = static_cast<unsigned char>(c);
  if (c == '\t') return tab;
  if (byte >= 128) return eightBit;
  return byte >= lowestByte && byte != 127 && refusedBytes.find(c) == std::string_view::npos;
}

bool smtp_text_rule::Allows(const char* text) const {
  return std::all_of(text, text + std::strlen(text), [this](char c) { return Allows(c); });
}
