#include "smtp/smtp_line_split.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/owners.h"
#include "smtp/smtp_strings.h"

using base::UniqueText;

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
