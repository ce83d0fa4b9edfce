#include "sysinfo/qxapi_process.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sysinfo/proc_files.h"
#include "sysinfo/process_status.h"
#include "sysinfo/qxapi_internal.h"
#include "sysinfo/user_names.h"

namespace {

using sysinfo::ProcFolder;
using sysinfo::ProcText;
using sysinfo::UserNames;

constexpr size_t SPRINTF_LIMIT = 0x80000 - 4096;

// What one snapshot is read with.
struct SnapshotSource {
  explicit SnapshotSource(const char* proc_root) : folder(proc_root) {}

  ProcFolder folder;
  ProcText file;
  UserNames owners;
  uint64_t page_kb = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) >> 10;
};

char* CopyBytes(std::string_view bytes) {
  auto* const copy = static_cast<char*>(std::malloc(bytes.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, bytes.data(), bytes.size());
  copy[bytes.size()] = '\0';
  return copy;
}

void StoreCommandLine(std::string_view words, qxapi_process* process) {
  if (words.empty()) return;
  process->cmdline = CopyBytes(words);
  if (process->cmdline != nullptr) {
    process->cmdline_len = words.size();
    __qxapi_command_line_decoder__(process->cmdline, words.size(), &process->argc, &process->argv);
  }
  process->command = CopyBytes(words);
  if (process->command != nullptr) {
    std::replace(process->command, process->command + words.size() - 1, '\0', ' ');
  }
}

void StoreStatus(std::string_view text, qxapi_process* process) {
  sysinfo::StatusFields fields;
  fields.pid = process->pid;
  sysinfo::ParseStatus(text, &fields);
  process->pid = fields.pid;
  if (fields.name) process->name = CopyBytes(*fields.name);
  process->state[0] = fields.state;
  process->ppid = fields.ppid;
  process->uid = fields.uid;
  process->gid = fields.gid;
  process->vmsize = fields.vmsize;
  process->threads = fields.threads;
}

void StoreCounters(std::string_view text, uint64_t page_kb, qxapi_process* process) {
  const auto counters = sysinfo::ParseStat(text);
  if (!counters) return;
  process->utime = counters->utime;
  process->stime = counters->stime;
  process->nice = counters->nice;
  process->rss_kb = page_kb * counters->pages;
}

void StoreStateLetters(qxapi_process* process) {
  if (process->rss_kb == 0 && process->state[0] != 'Z') process->state[1] = 'W';
  if (process->nice != 0) process->state[2] = process->nice > 0 ? 'N' : '<';
}

// Reads the record of the folder's entry. Returns null when the entry is no process or memory runs out. Each
// file is parsed before the next is read, because they share one buffer.
qxapi_process* OpenEntry(SnapshotSource* source) {
  ProcFolder& folder = source->folder;
  const std::string_view status = source->file.Read(folder.Open("status").Get());
  // Without a status the process may have ended meanwhile; then it has no record.
  if (status.empty() && !folder.Here()) return nullptr;
  qxapi_process* const process = __qxapi_new_process__();
  if (process == nullptr) return nullptr;
  process->pid = folder.Pid();
  StoreStatus(status, process);
  StoreCommandLine(source->file.Read(folder.Open("cmdline").Get()), process);
  StoreCounters(source->file.Read(folder.Open("stat").Get()), source->page_kb, process);
  StoreStateLetters(process);
  const char* const owner = source->owners.Find(process->uid);
  if (owner != nullptr) process->owner = ::strdup(owner);
  return process;
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

qxapi_process* __qxapi_new_process__() {
  auto* const process = static_cast<qxapi_process*>(std::calloc(1, sizeof(qxapi_process)));
  if (process != nullptr) std::memcpy(process->state, "   ", sizeof(process->state));
  return process;
}

int __qxapi_free_process__(qxapi_process* list) {
  while (list != nullptr) {
    qxapi_process* const next = list->next;
    std::free(list->owner);
    std::free(list->name);
    std::free(list->command);
    std::free(list->argv);
    std::free(list->cmdline);
    std::free(list);
    list = next;
  }
  return 0;
}

qxapi_process* qxapi_open_process(const char* proc_root) {
  SnapshotSource source(proc_root);
  qxapi_process* head = nullptr;
  qxapi_process** tail = &head;
  while (source.folder.Next()) {
    *tail = OpenEntry(&source);
    if (*tail != nullptr) tail = &(*tail)->next;
  }
  return head;
}

int qxapi_has_process(const char* proc_root) {
  ProcFolder folder(proc_root);
  while (folder.Next()) {
    if (folder.Here()) return 1;
  }
  return 0;
}

void qxapi_close_process(qxapi_process* list) {
  __qxapi_free_process__(list);
}

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
  while (sysinfo::IsWhite(*p)) ++p;
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
