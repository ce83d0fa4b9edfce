#include "sysinfo/qxapi_process.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "base/owners.h"
#include "sysinfo/owner_names.h"
#include "sysinfo/proc_text.h"
#include "sysinfo/qxapi_internal.h"

namespace {

using sysinfo::OwnerNames;
using sysinfo::ProcText;

// Paths of one process's files, relative to the process file system.
class EntryPath {
 public:
  explicit EntryPath(const char* entry) : length_(::strnlen(entry, NAME_MAX)) {
    std::memcpy(path_.data(), entry, length_);
    path_[length_++] = '/';
  }
  template <size_t N>
  const char* Of(const char (&file)[N]) {
    static_assert(N <= LONGEST_FILE);
    std::memcpy(path_.data() + length_, file, N);
    return path_.data();
  }

 private:
  static constexpr size_t LONGEST_FILE = sizeof("cmdline");
  std::array<char, NAME_MAX + 1 + LONGEST_FILE> path_;
  size_t length_;
};

// What the records of one snapshot are read with.
struct Source {
  int root;
  ProcText file;
  OwnerNames owners;
  uint64_t page_kb = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) >> 10;
};

base::UniqueFd OpenFile(int folder, const char* path) {
  return base::UniqueFd(::openat(folder, path, O_RDONLY | O_CLOEXEC));
}

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
  if (!fields.name.empty()) process->name = CopyBytes(fields.name);
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

// Each file is parsed before the next is read: they share one buffer.
void ReadProcess(Source* source, base::UniqueFd cmdline, EntryPath* path, qxapi_process* process) {
  StoreCommandLine(source->file.Read(cmdline.Get()), process);
  cmdline.Reset();
  StoreStatus(source->file.Read(OpenFile(source->root, path->Of("status")).Get()), process);
  StoreCounters(source->file.Read(OpenFile(source->root, path->Of("stat")).Get()), source->page_kb, process);
  StoreStateLetters(process);
  const char* const owner = source->owners.Find(process->uid);
  if (owner != nullptr) process->owner = ::strdup(owner);
}

bool ScanPid(const char* entry, int32_t* pid) {
  return entry[0] >= '0' && entry[0] <= '9' && std::sscanf(entry, "%i", pid) == 1;
}

bool IsDirectory(int root, const char* entry) {
  struct stat status {};
  return ::fstatat(root, entry, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

// The record of a directory entry; null when the entry is no process or memory runs out.
qxapi_process* OpenEntry(Source* source, const char* entry) {
  int32_t pid = 0;
  if (!ScanPid(entry, &pid)) return nullptr;
  EntryPath path(entry);
  // A file that opens shows that its directory is one: the stat is left to what just vanished.
  base::UniqueFd cmdline = OpenFile(source->root, path.Of("cmdline"));
  if (!cmdline.Valid() && !IsDirectory(source->root, entry)) return nullptr;
  qxapi_process* const process = __qxapi_new_process__();
  if (process == nullptr) return nullptr;
  process->pid = pid;
  ReadProcess(source, std::move(cmdline), &path, process);
  return process;
}

// A snapshot that ends after so many records.
qxapi_process* OpenFirst(size_t most, const char* proc_root) {
  const base::UniqueDir directory(::opendir(proc_root));
  if (!directory) return nullptr;
  Source source{::dirfd(directory.get()), {}, {}};
  qxapi_process* head = nullptr;
  qxapi_process** tail = &head;
  for (size_t count = 0; count < most;) {
    const dirent* const entry = ::readdir(directory.get());
    if (entry == nullptr) break;
    *tail = OpenEntry(&source, entry->d_name);
    if (*tail == nullptr) continue;
    tail = &(*tail)->next;
    ++count;
  }
  return head;
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
  return OpenFirst(std::numeric_limits<size_t>::max(), proc_root);
}

int qxapi_has_process(const char* proc_root) {
  qxapi_process* const first = OpenFirst(1, proc_root);
  __qxapi_free_process__(first);
  return first != nullptr ? 1 : 0;
}

void qxapi_close_process(qxapi_process* list) {
  __qxapi_free_process__(list);
}
