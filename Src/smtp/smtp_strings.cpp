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
  if (smtp_si_mul_size_t(count, size, &total) != 0) return smtp_out_of_memory();
  return std::realloc(block, total);
}

char* smtp_out_of_memory() {
  errno = ENOMEM;
  return nullptr;
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
  size_t occurrences = 0;
  for (const char* found = std::strstr(text, search); found != nullptr;
       found = std::strstr(found + searchLength, search)) {
    ++occurrences;
  }
  return occurrences;
}

// Computes length - occurrences * searchLength + occurrences * replaceLength + 1. Returns 1 on overflow, else
// 0.
int ReplacedSize(size_t length, size_t occurrences, size_t searchLength, size_t replaceLength,
                 size_t* replacedSize) {
  size_t removed = 0;
  size_t added = 0;
  return static_cast<int>(smtp_si_mul_size_t(occurrences, searchLength, &removed) != 0 ||
                          smtp_si_mul_size_t(occurrences, replaceLength, &added) != 0 ||
                          smtp_si_sub_size_t(length, removed, replacedSize) != 0 ||
                          smtp_si_add_size_t(*replacedSize, added, replacedSize) != 0 ||
                          smtp_si_add_size_t(*replacedSize, 1, replacedSize) != 0);
}

}  // namespace

char* smtp_str_replace(const char* search, const char* replace, const char* text) {
  const size_t searchLength = std::strlen(search);
  const size_t replaceLength = std::strlen(replace);
  if (searchLength == 0) return smtp_strdup(text);
  size_t replacedSize = 0;
  if (ReplacedSize(std::strlen(text), CountOccurrences(text, search, searchLength), searchLength,
                   replaceLength, &replacedSize) != 0) {
    return smtp_out_of_memory();
  }
  auto* replaced = static_cast<char*>(std::malloc(replacedSize));
  if (replaced == nullptr) return nullptr;
  char* replacedEnd = replaced;
  for (const char* found = std::strstr(text, search); found != nullptr; found = std::strstr(text, search)) {
    std::memcpy(replacedEnd, text, static_cast<size_t>(found - text));
    replacedEnd = smtp_stpcpy(replacedEnd + (found - text), replace);
    text = found + searchLength;
  }
  smtp_stpcpy(replacedEnd, text);
  return replaced;
}

size_t smtp_utf8_charlen(char lead) {
  const auto leadByte = static_cast<unsigned char>(lead);
  if (leadByte < 0x80) return 1;
  if (leadByte < 0xC0) return 0;
  if (leadByte < 0xE0) return 2;
  if (leadByte < 0xF0) return 3;
  return leadByte < 0xF8 ? 4 : 0;
}

namespace {

// The length of the text's ASCII prefix, in steps of 8 bytes.
size_t AsciiPrefix(std::string_view text) {
  size_t asciiLength = 0;
  uint64_t eightBytes = 0;
  while (text.size() - asciiLength >= sizeof eightBytes) {
    std::memcpy(&eightBytes, text.data() + asciiLength, sizeof eightBytes);
    if ((eightBytes & 0x8080808080808080U) != 0) break;
    asciiLength += sizeof eightBytes;
  }
  return asciiLength;
}

}  // namespace

size_t smtp_strnlen_utf8(std::string_view text, size_t minimum) {
  size_t length = AsciiPrefix(text.substr(0, minimum));
  while (length < minimum && length < text.size()) {
    const size_t characterLength = smtp_utf8_charlen(text[length]);
    if (characterLength == 0) return SIZE_MAX;
    length += characterLength;
  }
  return length < text.size() ? length : text.size();
}

int smtp_str_has_nonascii_utf8(const char* text) {
  for (; *text != '\0'; ++text) {
    if ((static_cast<unsigned char>(*text) & 0x80U) != 0) return 1;
  }
  return 0;
}

char* smtp_split_into(std::string_view text, size_t n, std::string_view pieceEnding, char* split) {
  while (!text.empty()) {
    const size_t pieceLength = smtp_strnlen_utf8(text, n);
    if (pieceLength == SIZE_MAX) return nullptr;
    std::memcpy(split, text.data(), pieceLength);
    std::memcpy(split + pieceLength, pieceEnding.data(), pieceEnding.size());
    split += pieceLength + pieceEnding.size();
    text.remove_prefix(pieceLength);
  }
  return split;
}

int smtp_split_size(size_t textLength, size_t n, size_t endingLength, size_t* splitSize) {
  const size_t pieces = textLength / n + static_cast<size_t>(textLength % n != 0);
  return static_cast<int>(smtp_si_mul_size_t(pieces, endingLength, splitSize) != 0 ||
                          smtp_si_add_size_t(*splitSize, textLength, splitSize) != 0 ||
                          smtp_si_add_size_t(*splitSize, 1, splitSize) != 0);
}

char* smtp_chunk_split(const char* text, size_t n, const char* pieceEnding) {
  if (n == 0) {
    errno = EINVAL;
    return nullptr;
  }
  if (*text == '\0') return smtp_strdup(pieceEnding);
  const std::string_view unsplit(text);
  size_t splitSize = 0;
  if (smtp_split_size(unsplit.size(), n, std::strlen(pieceEnding), &splitSize) != 0)
    return smtp_out_of_memory();
  UniqueText split(static_cast<char*>(std::malloc(splitSize)));
  if (split == nullptr) return nullptr;
  char* splitEnd = smtp_split_into(unsplit, n, pieceEnding, split.get());
  if (splitEnd == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  *splitEnd = '\0';
  return split.release();
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
