#include "Tovik/alarms/replace_all.h"

#include <cstdlib>
#include <string_view>

namespace {

size_t CountOf(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + part.size()))
    ++count;
  return count;
}

}  // namespace

char* replaceAll(char* str, const char* from, const char* to) {
  const std::string_view text(str);
  const std::string_view part(from);
  const std::string_view other(to);
  if (part.empty()) return str;
  // The sum cannot wrap: CountOf(text, part) * part.size() is at most text.size().
  const size_t count = CountOf(text, part);
  char* const result =
      static_cast<char*>(std::malloc(text.size() - part.size() * count + other.size() * count + 1));
  if (result == nullptr) return nullptr;
  char* out = result;
  size_t at = 0;
  for (size_t next = text.find(part); next != std::string_view::npos; next = text.find(part, at)) {
    out += text.copy(out, next - at, at);
    out += other.copy(out, other.size());
    at = next + part.size();
  }
  out += text.copy(out, text.size() - at, at);
  *out = '\0';
  return result;
}
