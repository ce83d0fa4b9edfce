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

constexpr int THREADS_BEHIND_STATE = 17;   // fields between the state and the number of threads
constexpr size_t ZOMBIE_STAT_SIZE = 1024;  // some 50 numbers, and a name of 64 bytes

char LowerKeyLetter(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void SkipWhite(std::string_view* rest) {
  while (!rest->empty() && IsWhite(rest->front())) rest->remove_prefix(1);
}

size_t WordEnd(const char* seps, std::string_view text) {
  if (seps == nullptr) {
    size_t stop = 0;
    while (stop < text.size() && !IsWhite(text[stop])) ++stop;
    return stop;
  }
  const bool single = seps[0] != '\0' && seps[1] == '\0';
  return std::min(single ? text.find(seps[0]) : text.find_first_of(seps), text.size());
}

bool SkipStatFields(std::string_view* rest, int count) {
  for (; count > 0; --count) {
    SkipWhite(rest);
    if (rest->empty()) return false;
    rest->remove_prefix(WordEnd(nullptr, *rest));
  }
  return true;
}

using base::LeadingNumber;

struct StatusKey {
  std::string_view key;
  void (*store)(StatusFields* fields, std::string_view value);
  bool blank = false;  // a blank value is stored, too
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
  const auto same = [key](const StatusKey& row) {
    return std::equal(key.begin(), key.end(), row.key.begin(), row.key.end(),
                      [](char a, char b) { return LowerKeyLetter(a) == b; });
  };
  const auto* const row = std::find_if(STATUS_KEYS.begin(), STATUS_KEYS.end(), same);
  return row == STATUS_KEYS.end() ? nullptr : row;
}

constexpr unsigned ALL_STATUS_KEYS = (1U << STATUS_KEYS.size()) - 1;

// Returns the bit of the key that was stored, or 0.
unsigned ParseStatusLine(std::string_view line, StatusFields* fields) {
  const StatusKey* const row = FindStatusKey(CutWord(":", &line));
  if (row == nullptr) return 0;
  line = line.substr(0, line.find('\0'));
  const std::string_view value = CutWord("\n", &line);
  if (value.empty() && !row->blank) return 0;
  row->store(fields, value);
  return 1U << (row - STATUS_KEYS.data());
}

// The text behind so many blanks.
std::string_view BehindBlanks(std::string_view text, int blanks) {
  for (; blanks > 0 && !text.empty(); --blanks)
    text.remove_prefix(std::min(text.find(' '), text.size() - 1) + 1);
  return text;
}

}  // namespace

std::string_view CutWord(const char* seps, std::string_view* rest) {
  SkipWhite(rest);
  const size_t stop = WordEnd(seps, *rest);
  std::string_view word = rest->substr(0, stop);
  rest->remove_prefix(std::min(stop + 1, rest->size()));
  while (!word.empty() && IsWhite(word.back())) word.remove_suffix(1);
  return word;
}

// The kernel writes each key once, and half of its file behind the last one that is wanted.
void ParseStatus(std::string_view status, StatusFields* fields) {
  unsigned found = 0;
  while (!status.empty() && found != ALL_STATUS_KEYS) {
    const size_t line_size = std::min(status.find('\n'), status.size() - 1) + 1;
    found |= ParseStatusLine(status.substr(0, line_size), fields);
    status.remove_prefix(line_size);
  }
}

std::optional<StatCounters> ParseStat(std::string_view stat) {
  stat = stat.substr(0, stat.find('\0'));
  const size_t name_end = stat.rfind(')');
  if (name_end == std::string_view::npos) return std::nullopt;
  stat.remove_prefix(name_end + 1);
  StatCounters counters{};
  const bool whole = SkipStatFields(&stat, 11) && base::TakeUnsigned(&stat, &counters.utime) &&
                     base::TakeUnsigned(&stat, &counters.stime) && SkipStatFields(&stat, 3) &&
                     base::TakeSigned(&stat, &counters.nice) && SkipStatFields(&stat, 4) &&
                     base::TakeUnsigned(&stat, &counters.pages);
  if (!whole) return std::nullopt;
  return counters;
}

bool TellsZombie(std::string_view stat) {
  // The name in parentheses may hold some of its own.
  const size_t name = stat.rfind(") ");
  if (name == std::string_view::npos || name + 2 >= stat.size()) return false;
  const std::string_view state = stat.substr(name + 2);
  if (state[0] != 'Z' && state[0] != 'X') return false;
  return base::LeadingNumber(BehindBlanks(state, THREADS_BEHIND_STATE)) <= 1;
}

bool IsZombie(int32_t pid) {
  std::array<char, sizeof "/proc/-2147483648/stat"> path;
  std::snprintf(path.data(), path.size(), "/proc/%d/stat", pid);
  const base::UniqueFd file(::open(path.data(), O_RDONLY | O_CLOEXEC));
  std::array<char, ZOMBIE_STAT_SIZE> text;
  return file.Valid() && TellsZombie({text.data(), base::ReadUpTo(file.Get(), text.data(), text.size())});
}

}  // namespace sysinfo
