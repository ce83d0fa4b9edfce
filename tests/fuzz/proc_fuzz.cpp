// Texts of the process file system: status, stat and command line.
#include <cstring>
#include <vector>

#include "fuzz/fuzz.h"
#include "sysinfo/qxapi_internal.h"

namespace {

void CheckStatus(const std::string& text) {
  sysinfo::StatusFields fields;
  fuzz::Quickly(text, [&] { sysinfo::ParseStatus(text, &fields); });
  if (fields.name.empty()) return;
  HOLDS(fields.name.data() >= text.data() &&
        fields.name.data() + fields.name.size() <= text.data() + text.size());
  HOLDS(fields.name.find_first_of(std::string_view("\n\0", 2)) == std::string_view::npos);
}

void CheckStat(const std::string& text) {
  const auto counters = sysinfo::ParseStat(text);
  const char* const end = std::strrchr(text.c_str(), ')');
  unsigned long utime = 0;
  unsigned long stime = 0;
  long nice = 0;
  unsigned long pages = 0;
  const bool whole =
      end != nullptr && std::sscanf(end + 1,
                                    "%*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %lu %lu %*s %*s %*s %ld "
                                    "%*s %*s %*s %*s %lu",
                                    &utime, &stime, &nice, &pages) == 4;
  HOLDS(counters.has_value() == whole);
  if (!whole) return;
  HOLDS(counters->utime == utime && counters->stime == stime && counters->nice == nice &&
        counters->pages == pages);
}

void CheckCommandLine(std::string text) {
  uint32_t count = 0;
  char** words = nullptr;
  const int result = __qxapi_command_line_decoder__(text.data(), text.size(), &count, &words);
  const base::UniqueText owner(reinterpret_cast<char*>(words));
  HOLDS(result == (text.empty() ? -1 : 1));
  const char* next = text.data();
  for (uint32_t i = 0; i < count; ++i) {
    HOLDS(words[i] == next);
    next += std::strlen(next) + 1;
  }
  HOLDS(next >= text.data() + text.size());
}

void CheckWords(const std::string& text, const char* separators) {
  const std::string until_nul = text.c_str();
  std::string_view rest = until_nul;
  const char* cursor = until_nul.c_str();
  while (*cursor != '\0') {
    const base::UniqueText copy(__qxapi_get_word_sep__(separators, &cursor));
    const std::string_view word = sysinfo::CutWord(separators, &rest);
    HOLDS(word == (copy == nullptr ? "" : copy.get()));
    HOLDS(rest.data() == cursor);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::Text(data, size);
  CheckStatus(text);
  CheckStat(text);
  CheckCommandLine(text);
  for (const char* separators : {":", ":\n", static_cast<const char*>(nullptr)}) CheckWords(text, separators);
  return 0;
}
