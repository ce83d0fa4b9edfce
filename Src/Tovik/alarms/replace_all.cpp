#include "Tovik/alarms/replace_all.h"

#include <cstdlib>
#include <string_view>

namespace {

size_t CountReplacements(std::string_view unreplaced, std::string_view replaced_part) {
  size_t replacements = 0;
  for (size_t at = unreplaced.find(replaced_part); at != std::string_view::npos;
       at = unreplaced.find(replaced_part, at + replaced_part.size()))
    ++replacements;
  return replacements;
}

}  // namespace

char* replaceAll(char* str, const char* from, const char* to) {
  const std::string_view unreplaced(str);
  const std::string_view replaced_part(from);
  const std::string_view replacement(to);
  if (replaced_part.empty()) return str;
  // The sum cannot wrap: replacements * replaced_part.size() is at most unreplaced.size().
  const size_t replacements = CountReplacements(unreplaced, replaced_part);
  char* const replaced_text = static_cast<char*>(std::malloc(
      unreplaced.size() - replaced_part.size() * replacements + replacement.size() * replacements + 1));
  if (replaced_text == nullptr) return nullptr;
  char* replaced = replaced_text;
  size_t at = 0;
  for (size_t next = unreplaced.find(replaced_part); next != std::string_view::npos;
       next = unreplaced.find(replaced_part, at)) {
    replaced += unreplaced.copy(replaced, next - at, at);
    replaced += replacement.copy(replaced, replacement.size());
    at = next + replaced_part.size();
  }
  replaced += unreplaced.copy(replaced, unreplaced.size() - at, at);
  *replaced = '\0';
  return replaced_text;
}
