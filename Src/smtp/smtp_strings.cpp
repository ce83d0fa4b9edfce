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

void* smtp_reallocarray(void* arrayBlock, size_t count, size_t size) {
  size_t arraySize = 0;
  if (smtp_si_mul_size_t(count, size, &arraySize) != 0) return smtp_out_of_memory();
  return std::realloc(arrayBlock, arraySize);
}

char* smtp_out_of_memory() {
  errno = ENOMEM;
  return nullptr;
}

char* smtp_strdup(const char* text) {
  const size_t stringSize = std::strlen(text) + 1;
  void* stringCopy = std::malloc(stringSize);
  return stringCopy == nullptr ? nullptr : static_cast<char*>(std::memcpy(stringCopy, text, stringSize));
}

char* smtp_stpcpy(char* destination, const char* text) {
  const size_t stringLength = std::strlen(text);
  std::memcpy(destination, text, stringLength + 1);
  return destination + stringLength;
}

namespace {

size_t CountStringMatches(const char* text, const char* search, size_t searchLength) {
  size_t occurrences = 0;
  for (const char* foundString = std::strstr(text, search); foundString != nullptr;
       foundString = std::strstr(foundString + searchLength, search)) {
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
  if (ReplacedSize(std::strlen(text), CountStringMatches(text, search, searchLength), searchLength,
                   replaceLength, &replacedSize) != 0) {
    return smtp_out_of_memory();
  }
  auto* replacedString = static_cast<char*>(std::malloc(replacedSize));
  if (replacedString == nullptr) return nullptr;
  char* replacedEnd = replacedString;
  for (const char* foundString = std::strstr(text, search); foundString != nullptr;
       foundString = std::strstr(text, search)) {
    std::memcpy(replacedEnd, text, static_cast<size_t>(foundString - text));
    replacedEnd = smtp_stpcpy(replacedEnd + (foundString - text), replace);
    text = foundString + searchLength;
  }
  smtp_stpcpy(replacedEnd, text);
  return replacedString;
}

size_t smtp_utf8_charlen(char lead) {
  const auto smtpLead = static_cast<unsigned char>(lead);
  if (smtpLead < 0x80) return 1;
  if (smtpLead < 0xC0) return 0;
  if (smtpLead < 0xE0) return 2;
  if (smtpLead < 0xF0) return 3;
  return smtpLead < 0xF8 ? 4 : 0;
}

namespace {

// The length of the text's ASCII prefix, in steps of 8 bytes.
size_t SmtpAsciiLength(std::string_view smtpText) {
  size_t asciiLength = 0;
  uint64_t smtpBytes = 0;
  while (smtpText.size() - asciiLength >= sizeof smtpBytes) {
    std::memcpy(&smtpBytes, smtpText.data() + asciiLength, sizeof smtpBytes);
    if ((smtpBytes & 0x8080808080808080U) != 0) break;
    asciiLength += sizeof smtpBytes;
  }
  return asciiLength;
}

}  // namespace

size_t smtp_strnlen_utf8(std::string_view smtpText, size_t minimum) {
  size_t length = SmtpAsciiLength(smtpText.substr(0, minimum));
  while (length < minimum && length < smtpText.size()) {
    const size_t characterLength = smtp_utf8_charlen(smtpText[length]);
    if (characterLength == 0) return SIZE_MAX;
    length += characterLength;
  }
  return length < smtpText.size() ? length : smtpText.size();
}

int smtp_str_has_nonascii_utf8(const char* smtpText) {
  for (; *smtpText != '\0'; ++smtpText) {
    if ((static_cast<unsigned char>(*smtpText) & 0x80U) != 0) return 1;
  }
  return 0;
}

char* smtp_split_into(std::string_view unsplit, size_t n, std::string_view pieceEnding, char* smtpSplit) {
  while (!unsplit.empty()) {
    const size_t pieceLength = smtp_strnlen_utf8(unsplit, n);
    if (pieceLength == SIZE_MAX) return nullptr;
    std::memcpy(smtpSplit, unsplit.data(), pieceLength);
    std::memcpy(smtpSplit + pieceLength, pieceEnding.data(), pieceEnding.size());
    smtpSplit += pieceLength + pieceEnding.size();
    unsplit.remove_prefix(pieceLength);
  }
  return smtpSplit;
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
  UniqueText smtpSplit(static_cast<char*>(std::malloc(splitSize)));
  if (smtpSplit == nullptr) return nullptr;
  char* splitStringEnd = smtp_split_into(unsplit, n, pieceEnding, smtpSplit.get());
  if (splitStringEnd == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  *splitStringEnd = '\0';
  return smtpSplit.release();
}

bool smtp_text_rule::Allows(char smtpChar) const {
  const auto smtpByte = static_cast<unsigned char>(smtpChar);
  if (smtpChar == '\t') return tab;
  if (smtpByte >= 128) return eightBit;
  return smtpByte >= lowestByte && smtpByte != 127 && refusedBytes.find(smtpChar) == std::string_view::npos;
}

bool smtp_text_rule::Allows(const char* smtpText) const {
  return std::all_of(smtpText, smtpText + std::strlen(smtpText),
                     [this](char smtpChar) { return Allows(smtpChar); });
}
