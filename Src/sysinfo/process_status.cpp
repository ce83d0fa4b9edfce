#include "sysinfo/process_status.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/number.h"
#include "base/regular_file.h"
#include "base/unique_handles.h"

namespace sysinfo {
namespace {

constexpr int THREADS_BEHIND_STATE = 17;    // fields between the state and the number of threads
constexpr size_t PROCESS_STAT_SIZE = 1024;  // some 50 numbers, and a name of 64 bytes

char LowerStatusKeyLetter(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void SkipStatusWhite(std::string_view* status_rest) {
  while (!status_rest->empty() && IsStatusWhite(status_rest->front())) status_rest->remove_prefix(1);
}

size_t StatusWordEnd(const char* status_separators, std::string_view status_text) {
  if (status_separators == nullptr) {
    size_t status_word_end = 0;
    while (status_word_end < status_text.size() && !IsStatusWhite(status_text[status_word_end]))
      ++status_word_end;
    return status_word_end;
  }
  const bool one_separator = status_separators[0] != '\0' && status_separators[1] == '\0';
  return std::min(
      one_separator ? status_text.find(status_separators[0]) : status_text.find_first_of(status_separators),
      status_text.size());
}

bool SkipStatFields(std::string_view* stat_rest, int stat_fields) {
  for (; stat_fields > 0; --stat_fields) {
    SkipStatusWhite(stat_rest);
    if (stat_rest->empty()) return false;
    stat_rest->remove_prefix(StatusWordEnd(nullptr, *stat_rest));
  }
  return true;
}

using base::LeadingNumber;

struct StatusKey {
  std::string_view status_key;
  void (*store_field)(StatusFields* fields, std::string_view value);
  bool blank_counts = false;  // a blank value is stored, too
};

constexpr std::array<StatusKey, 8> STATUS_KEYS{{
    {"name", [](StatusFields* f, std::string_view v) { f->name = v; }, true},
    {"state", [](StatusFields* f, std::string_view v) { f->state = v.front(); }},
    {"pid", [](StatusFields* f, std::string_view v) { f->pid = static_cast<int32_t>(LeadingNumber(v)); }},
    {"ppid", [](StatusFields* f, std::string_view v) { f->ppid = static_cast<int32_t>(LeadingNumber(v)); }},
    {"uid", [](StatusFields* f, std::string_view v) { f->uid = static_cast<uint32_t>(LeadingNumber(v)); }},
    {"gid", [](StatusFields* f, std::string_view v) { f->gid = static_cast<uint32_t>(LeadingNumber(v)); }},
    {"vmsize",
     [](StatusFields* f, std::string_view v) { f->vmsize = static_cast<uint64_t>(LeadingNumber(v)); }},
    {"threads",
     [](StatusFields* f, std::string_view v) { f->threads = static_cast<int32_t>(LeadingNumber(v)); }},
}};

const StatusKey* FindStatusKey(std::string_view key) {
  const auto same_key = [key](const StatusKey& status_row) {
    return std::equal(key.begin(), key.end(), status_row.status_key.begin(), status_row.status_key.end(),
                      [](char a, char b) { return LowerStatusKeyLetter(a) == b; });
  };
  const auto* const status_row = std::find_if(STATUS_KEYS.begin(), STATUS_KEYS.end(), same_key);
  return status_row == STATUS_KEYS.end() ? nullptr : status_row;
}

constexpr unsigned ALL_STATUS_KEYS = (1U << STATUS_KEYS.size()) - 1;

// Returns the bit of the key that was stored, or 0.
unsigned ParseStatusLine(std::string_view status_line, StatusFields* fields) {
  const StatusKey* const status_row = FindStatusKey(CutStatusWord(":", &status_line));
  if (status_row == nullptr) return 0;
  status_line = status_line.substr(0, status_line.find('\0'));
  const std::string_view status_value = CutStatusWord("\n", &status_line);
  if (status_value.empty() && !status_row->blank_counts) return 0;
  status_row->store_field(fields, status_value);
  return 1U << (status_row - STATUS_KEYS.data());
}

// The text behind so many blanks.
std::string_view BehindBlanks(std::string_view stat_text, int stat_blanks) {
  for (; stat_blanks > 0 && !stat_text.empty(); --stat_blanks)
    stat_text.remove_prefix(std::min(stat_text.find(' '), stat_text.size() - 1) + 1);
  return stat_text;
}

}  // namespace

std::string_view CutStatusWord(const char* status_separators, std::string_view* status_rest) {
  SkipStatusWhite(status_rest);
  const size_t status_word_end = StatusWordEnd(status_separators, *status_rest);
  std::string_view status_word = status_rest->substr(0, status_word_end);
  status_rest->remove_prefix(std::min(status_word_end + 1, status_rest->size()));
  while (!status_word.empty() && IsStatusWhite(status_word.back())) status_word.remove_suffix(1);
  return status_word;
}

// The kernel writes each key once, and half of its file behind the last one that is wanted.
void ParseStatus(std::string_view status, StatusFields* fields) {
  unsigned found_keys = 0;
  while (!status.empty() && found_keys != ALL_STATUS_KEYS) {
    const size_t status_line_size = std::min(status.find('\n'), status.size() - 1) + 1;
    found_keys |= ParseStatusLine(status.substr(0, status_line_size), fields);
    status.remove_prefix(status_line_size);
  }
}

std::optional<StatCounters> ParseStat(std::string_view stat) {
  stat = stat.substr(0, stat.find('\0'));
  const size_t stat_name_end = stat.rfind(')');
  if (stat_name_end == std::string_view::npos) return std::nullopt;
  stat.remove_prefix(stat_name_end + 1);
  StatCounters stat_counters{};
  const bool all_counters = SkipStatFields(&stat, 11) && base::TakeUnsigned(&stat, &stat_counters.utime) &&
                            base::TakeUnsigned(&stat, &stat_counters.stime) && SkipStatFields(&stat, 3) &&
                            base::TakeSigned(&stat, &stat_counters.nice) && SkipStatFields(&stat, 4) &&
                            base::TakeUnsigned(&stat, &stat_counters.pages);
  if (!all_counters) return std::nullopt;
  return stat_counters;
}

bool TellsZombie(std::string_view stat) {
  // The name in parentheses may hold some of its own.
  const size_t stat_name_end = stat.rfind(") ");
  if (stat_name_end == std::string_view::npos || stat_name_end + 2 >= stat.size()) return false;
  const std::string_view stat_state = stat.substr(stat_name_end + 2);
  if (stat_state[0] != 'Z' && stat_state[0] != 'X') return false;
  return base::LeadingNumber(BehindBlanks(stat_state, THREADS_BEHIND_STATE)) <= 1;
}

bool IsZombie(int32_t pid) {
  std::array<char, sizeof "/proc/-2147483648/stat"> stat_path;
  std::snprintf(stat_path.data(), stat_path.size(), "/proc/%d/stat", pid);
  const base::UniqueFd stat_file(::open(stat_path.data(), O_RDONLY | O_CLOEXEC));
  std::array<char, PROCESS_STAT_SIZE> stat_text;
  return stat_file.Valid() &&
         TellsZombie({stat_text.data(), base::ReadUpTo(stat_file.Get(), stat_text.data(), stat_text.size())});
}

}  // namespace sysinfo
