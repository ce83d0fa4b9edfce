#include "smtp/smtp_fold.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/owners.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr const char* BLANKS = " \t";
constexpr std::string_view CONTINUATION = "\r\n ";
constexpr size_t MINIMUM_WIDTH = 3;

// At most every byte becomes three.
int FoldedSize(const char* line, size_t* size) {
  return static_cast<int>(smtp_si_mul_size_t(std::strlen(line), CONTINUATION.size(), size) != 0 ||
                          smtp_si_add_size_t(*size, 1, size) != 0);
}

}  // namespace

size_t smtp_fold_whitespace_get_offset(const char* line, size_t width) {
  const size_t limit = (width < MINIMUM_WIDTH ? MINIMUM_WIDTH : width) - 2;
  size_t candidate = 0;  // 0: none yet; only blanks after a word count
  size_t at = std::strspn(line, BLANKS);
  while (true) {
    at += std::strcspn(line + at, BLANKS);
    if (line[at] == '\0') return at < limit || candidate == 0 ? at : candidate;
    at += std::strspn(line + at, BLANKS);
    const size_t blank = at - 1;
    if (blank >= limit && candidate != 0) return candidate;
    candidate = blank;
  }
}

char* smtp_fold_whitespace(const char* line, size_t width) {
  size_t size = 0;
  if (FoldedSize(line, &size) != 0) {
    errno = ENOMEM;
    return nullptr;
  }
  auto* result = static_cast<char*>(std::malloc(size));
  if (result == nullptr) return nullptr;
  char* out = result;
  while (true) {
    const size_t length = smtp_fold_whitespace_get_offset(line, width);
    std::memcpy(out, line, length);
    out += length;
    if (line[length] == '\0') break;
    out = smtp_stpcpy(out, CONTINUATION.data());
    line += length + 1;
  }
  *out = '\0';
  return result;
}
