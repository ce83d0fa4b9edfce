// The parsers of the process file system: status, stat (checked against sscanf) and command line.
#include "fuzz/fuzz.h"
#include "sysinfo/process_status.h"
#include "sysinfo/qxapi_internal.h"

namespace {

void CheckStat(const std::string& text) {
  const auto counters = sysinfo::ParseStat(text);
  const char* const end = std::strrchr(text.c_str(), ')');
  unsigned long utime = 0;
  unsigned long stime = 0;
  long nice = 0;
  unsigned long pages = 0;
  constexpr char FORMAT[] =
      "%*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %lu %lu %*s %*s %*s %ld %*s %*s %*s %*s %lu";
  const bool whole = end != nullptr && std::sscanf(end + 1, FORMAT, &utime, &stime, &nice, &pages) == 4;
  HOLDS(counters.has_value() == whole);
  HOLDS(!whole || (counters->utime == utime && counters->stime == stime && counters->nice == nice &&
                   counters->pages == pages));
}

void CheckCommandLine(std::string text) {
  uint32_t count = 0;
  char** words = nullptr;
  const int result = __qxapi_command_line_decoder__(text.data(), text.size(), &count, &words);
  const base::UniqueText owner(reinterpret_cast<char*>(words));
  HOLDS(result == (text.empty() ? -1 : 1));
  const char* next = text.data();
  for (uint32_t i = 0; i < count; next += std::strlen(next) + 1, ++i) HOLDS(words[i] == next);
  HOLDS(next >= text.data() + text.size());
}

}  // namespace

FUZZ_TARGET(text) {
  sysinfo::StatusFields fields;
  fuzz::Quickly(text, [&] { sysinfo::ParseStatus(text, &fields); });
  if (fields.name) {
    HOLDS(text.find(*fields.name) != text.npos);
    HOLDS(fields.name->find_first_of(std::string_view("\n\0", 2)) == text.npos);
  }
  CheckStat(text);
  CheckCommandLine(text);
  const char* cursor = text.c_str();
  while (*cursor != '\0') base::UniqueText(__qxapi_get_word_sep__(":\n", &cursor));
  HOLDS(cursor == text.c_str() + std::strlen(text.c_str()));
}
