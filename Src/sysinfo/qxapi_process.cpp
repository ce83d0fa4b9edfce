#include "sysinfo/qxapi_process.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "sysinfo/proc_folder.h"
#include "sysinfo/proc_text.h"
#include "sysinfo/qxapi_internal.h"
#include "sysinfo/user_names.h"

namespace {

using sysinfo::ProcFolder;
using sysinfo::ProcText;
using sysinfo::UserNames;

// What the records of one snapshot are read with.
struct Source {
  explicit Source(const char* proc_root) : folder(proc_root) {}

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

// The record of the folder's entry; null when the entry is no process or memory runs out. Each file is parsed
// before the next is read: they share one buffer.
qxapi_process* OpenEntry(Source* source) {
  ProcFolder& folder = source->folder;
  const std::string_view status = source->file.Read(folder.Open("status").Get());
  // One without a status may have ended meanwhile, and is no process then.
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
  Source source(proc_root);
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
