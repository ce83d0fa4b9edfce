// What the files "status" and "stat" of a process tell, and whether it still lives. Functions of texts,
// except IsZombie.
#ifndef SYSINFO_PROCESS_STATUS_H
#define SYSINFO_PROCESS_STATUS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace sysinfo {

// Blank, tab, newline, vertical tab, form feed and carriage return, in every locale.
inline bool IsStatusWhite(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// As __qxapi_get_word_sep__ (qxapi_text.h), without the copy. *status_rest takes the place of the cursor; an
// empty word is an empty view.
std::string_view CutStatusWord(const char* status_separators, std::string_view* status_rest);

struct StatusFields {
  std::optional<std::string_view> name;  // points into the text
  char state = ' ';
  int32_t pid = 0;
  int32_t ppid = 0;
  uint32_t uid = 0;
  uint32_t gid = 0;
  uint64_t vmsize = 0;
  int32_t threads = 0;
};

// Reads the fields of /proc/PID/status. A field keeps its value when its line is missing or, except for the
// name, blank. Nothing is read behind the line that completes them. A number too large for its field loses
// its high bits; a value without a number is 0. A NUL ends its line early.
void ParseStatus(std::string_view status, StatusFields* fields);

struct StatCounters {
  uint64_t utime;
  uint64_t stime;
  int64_t nice;
  uint64_t pages;
};

// Reads the counters after the last ')' of /proc/PID/stat, converted as scanf's %lu and %ld do. No result
// unless all four are there.
std::optional<StatCounters> ParseStat(std::string_view stat);

// What a text of /proc/PID/stat tells: true for a process that has ended as a whole. One whose first thread
// alone has ended shows the same state and lives on in the others. False for a text that tells neither.
bool TellsZombie(std::string_view stat);

// The same of a process; false when it cannot be read. One small file is read; it does not block.
bool IsZombie(int32_t pid);

}  // namespace sysinfo

#endif
