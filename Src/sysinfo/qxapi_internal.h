// The parts of the process table that work on text and records alone; for this folder and its tests.
// White space is blank, tab, newline, vertical tab, form feed and carriage return, whatever the locale.
#ifndef SYSINFO_QXAPI_INTERNAL_H
#define SYSINFO_QXAPI_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "sysinfo/qxapi_process.h"

inline constexpr uint32_t QXAPI_MAX_WORDS = 393216;

// Byte i of buf, 0..255.
unsigned int __qxapi_peek_byte__(const void* buf, size_t i);
// Stores c at byte i of buf and returns its address.
unsigned char* __qxapi_poke_byte__(void* buf, size_t i, unsigned char c);
// p advanced past white space; null for null.
const char* __qxapi_skip_space__(const char* p);

// Cuts the next word out of the text at *cursor: from the first non-white character up to a character of seps
// (up to white space when seps is null) or the end, without the white space before that. *cursor moves behind
// the separator, or onto the end. Returns a copy to be freed by the caller; null for an empty word, when
// memory runs out, and, with the cursor untouched, when cursor or *cursor is null.
char* __qxapi_get_word_sep__(const char* seps, const char** cursor);

// printf into a text of exactly the needed length, to be freed by the caller. Null for a null format, when
// memory runs out, or when the text has more than 520,191 characters.
[[gnu::format(printf, 1, 2)]] char* __qxapi_alloc_sprintf__(const char* fmt, ...);

// A record of zeros with three blanks as its state; null when memory runs out.
qxapi_process* __qxapi_new_process__();
// The body of qxapi_close_process. Returns 0.
int __qxapi_free_process__(qxapi_process* list);

// Points *argv, an array to be freed by the caller, to the words of buf, each ended by NUL or, for the last,
// by the end of the len bytes. Two NULs in a row hold an empty word. Words past QXAPI_MAX_WORDS are left out.
// Returns 1; 0 when memory runs out and -1 when buf is null or len is 0, both with *argc 0 and *argv null.
int __qxapi_command_line_decoder__(char* buf, uint64_t len, uint32_t* argc, char*** argv);

namespace sysinfo {

// __qxapi_get_word_sep__ without the copy: *rest takes the part of the cursor, an empty view that of null.
std::string_view CutWord(const char* seps, std::string_view* rest);

struct StatusFields {
  std::optional<std::string_view> name;  // into the text
  char state = ' ';
  int32_t pid = 0;
  int32_t ppid = 0;
  uint32_t uid = 0;
  uint32_t gid = 0;
  uint64_t vmsize = 0;
  int32_t threads = 0;
};

// Takes over what /proc/PID/status tells. A field without a line, or with a blank one unless it is the
// name's, keeps its value; of several lines the last counts. Numbers that do not fit are cut to the field's
// width; none at all is 0. A NUL ends its line early.
void ParseStatus(std::string_view text, StatusFields* fields);

// The name that /proc/PID/status tells where /proc/PID/comm holds this text, written to name, which has room
// for twice the text's length. Returns the name's length; no terminator is written.
size_t NameFromComm(std::string_view text, char* name);

struct StatCounters {
  uint64_t utime;
  uint64_t stime;
  int64_t nice;
  uint64_t pages;
};

// The counters of /proc/PID/stat behind the last ')', converted as scanf's %lu and %ld do; none unless all
// four are there.
std::optional<StatCounters> ParseStat(std::string_view text);

}  // namespace sysinfo

#endif
