#include "Tovik/alarms/replace_all.h"

#include <cstdlib>
#include <string_view>

namespace {

size_t CountReplacements(std::string_view text, std::string_view old_part) {
  size_t replacements = 0;
  for (size_t at = text.find(old_part); at != std::string_view::npos;
       at = text.find(old_part, at + old_part.size()))
    ++replacements;
  return replacements;
}

}  // namespace

char* replaceAll(char* str, const char* from, const char* to) {
  const std::string_view text(str);
  const std::string_view old_part(from);
  const std::string_view new_part(to);
  if (old_part.empty()) return str;
  // The sum cannot wrap: replacements * old_part.size() is at most text.size().
  const size_t replacements = CountReplacements(text, old_part);
  char* const replaced_text = static_cast<char*>(
      std::malloc(text.size() - old_part.size() * replacements + new_part.size() * replacements + 1));
  if (replaced_text == nullptr) return nullptr;
  char* replaced = replaced_text;
  size_t at = 0;
  for (size_t next = text.find(old_part); next != std::string_view::npos; next = text.find(old_part, at)) {
    replaced += text.copy(replaced, next - at, at);
    replaced += new_part.copy(replaced, new_part.size());
    at = next + old_part.size();
  }
  replaced += text.copy(replaced, text.size() - at, at);
  *replaced = '\0';
  return replaced_text;
}
