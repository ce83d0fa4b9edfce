#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/number.h"
#include "sysinfo/qxapi_internal.h"

namespace {

constexpr size_t SPRINTF_LIMIT = 0x80000 - 4096;

bool IsWhite(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void SkipWhite(std::string_view* rest) {
  while (!rest->empty() && IsWhite(rest->front())) rest->remove_prefix(1);
}

size_t FindStop(const char* seps, std::string_view text) {
  if (seps == nullptr) {
    size_t stop = 0;
    while (stop < text.size() && !IsWhite(text[stop])) ++stop;
    return stop;
  }
  const bool single = seps[0] != '\0' && seps[1] == '\0';
  return std::min(single ? text.find(seps[0]) : text.find_first_of(seps), text.size());
}

bool SkipFields(std::string_view* rest, int count) {
  for (; count > 0; --count) {
    SkipWhite(rest);
    if (rest->empty()) return false;
    rest->remove_prefix(FindStop(nullptr, *rest));
  }
  return true;
}

using base::LeadingNumber;
using sysinfo::StatusFields;

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
                      [](char a, char b) { return LowerAscii(a) == b; });
  };
  const auto* const row = std::find_if(STATUS_KEYS.begin(), STATUS_KEYS.end(), same);
  return row == STATUS_KEYS.end() ? nullptr : row;
}

constexpr unsigned ALL_STATUS_KEYS = (1U << STATUS_KEYS.size()) - 1;

// Returns the bit of the key that was stored, or 0.
unsigned ParseStatusLine(std::string_view line, StatusFields* fields) {
  const StatusKey* const row = FindStatusKey(sysinfo::CutWord(":", &line));
  if (row == nullptr) return 0;
  line = line.substr(0, line.find('\0'));
  const std::string_view value = sysinfo::CutWord("\n", &line);
  if (value.empty() && !row->blank) return 0;
  row->store(fields, value);
  return 1U << (row - STATUS_KEYS.data());
}

[[gnu::format(printf, 1, 0)]] char* FormatToHeap(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  char* text = nullptr;
  if (length >= 0 && static_cast<size_t>(length) < SPRINTF_LIMIT) {
    const size_t size = static_cast<size_t>(length) + 1;
    text = static_cast<char*>(std::malloc(size));
    if (text != nullptr) std::vsnprintf(text, size, format, again);
  }
  va_end(again);
  return text;
}

// Calls each with the start of every word, until it returns false.
template <typename Each>
void ForEachWord(char* buf, uint64_t len, Each each) {
  for (uint64_t start = 0; start < len;) {
    const void* const nul = std::memchr(buf + start, '\0', len - start);
    const uint64_t stop = nul == nullptr ? len : static_cast<uint64_t>(static_cast<const char*>(nul) - buf);
    if (!each(buf + start)) return;
    start = stop + 1;
  }
}

}  // namespace

unsigned int __qxapi_peek_byte__(const void* buf, size_t i) {
  return static_cast<const unsigned char*>(buf)[i];
}

unsigned char* __qxapi_poke_byte__(void* buf, size_t i, unsigned char c) {
  unsigned char* const byte = static_cast<unsigned char*>(buf) + i;
  *byte = c;
  return byte;
}

const char* __qxapi_skip_space__(const char* p) {
  if (p == nullptr) return nullptr;
  while (IsWhite(*p)) ++p;
  return p;
}

char* __qxapi_get_word_sep__(const char* seps, const char** cursor) {
  if (cursor == nullptr || *cursor == nullptr) return nullptr;
  std::string_view rest(*cursor);
  const std::string_view word = sysinfo::CutWord(seps, &rest);
  *cursor = rest.data();
  return word.empty() ? nullptr : ::strndup(word.data(), word.size());
}

char* __qxapi_alloc_sprintf__(const char* fmt, ...) {
  if (fmt == nullptr) return nullptr;
  va_list arguments;
  va_start(arguments, fmt);
  char* const text = FormatToHeap(fmt, arguments);
  va_end(arguments);
  return text;
}

int __qxapi_command_line_decoder__(char* buf, uint64_t len, uint32_t* argc, char*** argv) {
  *argc = 0;
  *argv = nullptr;
  if (buf == nullptr || len == 0) return -1;
  uint32_t words = 0;
  ForEachWord(buf, len, [&](char*) { return ++words < QXAPI_MAX_WORDS; });
  auto** const array = static_cast<char**>(std::malloc(words * sizeof(char*)));
  if (array == nullptr) return 0;
  ForEachWord(buf, len, [&](char* word) {
    array[(*argc)++] = word;
    return *argc < words;
  });
  *argv = array;
  return 1;
}

namespace sysinfo {

std::string_view CutWord(const char* seps, std::string_view* rest) {
  SkipWhite(rest);
  const size_t stop = FindStop(seps, *rest);
  std::string_view word = rest->substr(0, stop);
  rest->remove_prefix(std::min(stop + 1, rest->size()));
  while (!word.empty() && IsWhite(word.back())) word.remove_suffix(1);
  return word;
}

// The kernel writes each key once, and half of its file behind the last one that is wanted.
void ParseStatus(std::string_view text, StatusFields* fields) {
  unsigned found = 0;
  while (!text.empty() && found != ALL_STATUS_KEYS) {
    const size_t line = std::min(text.find('\n'), text.size() - 1) + 1;
    found |= ParseStatusLine(text.substr(0, line), fields);
    text.remove_prefix(line);
  }
}

size_t NameFromComm(std::string_view text, char* name) {
  // The status file writes a newline as two characters, so it is not white space there.
  const auto trimmed = [](char c) { return IsWhite(c) && c != '\n'; };
  if (text.ends_with('\n')) text.remove_suffix(1);
  while (!text.empty() && trimmed(text.front())) text.remove_prefix(1);
  while (!text.empty() && trimmed(text.back())) text.remove_suffix(1);
  char* end = name;
  for (const char c : text) {
    if (c == '\n' || c == '\\') *end++ = '\\';
    *end++ = c == '\n' ? 'n' : c;
  }
  return static_cast<size_t>(end - name);
}

std::optional<StatCounters> ParseStat(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  const size_t name_end = text.rfind(')');
  if (name_end == std::string_view::npos) return std::nullopt;
  text.remove_prefix(name_end + 1);
  StatCounters c{};
  const bool whole = SkipFields(&text, 11) && base::TakeUnsigned(&text, &c.utime) &&
                     base::TakeUnsigned(&text, &c.stime) && SkipFields(&text, 3) &&
                     base::TakeSigned(&text, &c.nice) && SkipFields(&text, 4) &&
                     base::TakeUnsigned(&text, &c.pages);
  if (!whole) return std::nullopt;
  return c;
}

}  // namespace sysinfo
