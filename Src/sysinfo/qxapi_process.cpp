#include "sysinfo/qxapi_process.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "sysinfo/proc_files.h"
#include "sysinfo/process_status.h"
#include "sysinfo/qxapi_text.h"
#include "sysinfo/user_names.h"

namespace {

using sysinfo::ProcFolder;
using sysinfo::ProcText;
using sysinfo::UserNames;

// What one snapshot is read with.
struct SnapshotSource {
  explicit SnapshotSource(const char* proc_root) : proc_folder(proc_root) {}

  ProcFolder proc_folder;
  ProcText proc_text;
  UserNames user_names;
  uint64_t page_kb = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) >> 10;
};

char* CopyRecordText(std::string_view record_text) {
  auto* const text_copy = static_cast<char*>(std::malloc(record_text.size() + 1));
  if (text_copy == nullptr) return nullptr;
  std::memcpy(text_copy, record_text.data(), record_text.size());
  text_copy[record_text.size()] = '\0';
  return text_copy;
}

void StoreCommandLine(std::string_view cmdline, qxapi_process* process) {
  if (cmdline.empty()) return;
  process->cmdline = CopyRecordText(cmdline);
  if (process->cmdline != nullptr) {
    process->cmdline_len = cmdline.size();
    __qxapi_command_line_decoder__(process->cmdline, cmdline.size(), &process->argc, &process->argv);
  }
  process->command = CopyRecordText(cmdline);
  if (process->command != nullptr) {
    std::replace(process->command, process->command + cmdline.size() - 1, '\0', ' ');
  }
}

void StoreStatus(std::string_view status, qxapi_process* process) {
  sysinfo::StatusFields status_fields;
  status_fields.pid = process->pid;
  sysinfo::ParseStatus(status, &status_fields);
  process->pid = status_fields.pid;
  if (status_fields.name) process->name = CopyRecordText(*status_fields.name);
  process->state[0] = status_fields.state;
  process->ppid = status_fields.ppid;
  process->uid = status_fields.uid;
  process->gid = status_fields.gid;
  process->vmsize = status_fields.vmsize;
  process->threads = status_fields.threads;
}

void StoreCounters(std::string_view stat, uint64_t page_kb, qxapi_process* process) {
  const auto stat_counters = sysinfo::ParseStat(stat);
  if (!stat_counters) return;
  process->utime = stat_counters->utime;
  process->stime = stat_counters->stime;
  process->nice = stat_counters->nice;
  process->rss_kb = page_kb * stat_counters->pages;
}

void StoreStateLetters(qxapi_process* process) {
  if (process->rss_kb == 0 && process->state[0] != 'Z') process->state[1] = 'W';
  if (process->nice != 0) process->state[2] = process->nice > 0 ? 'N' : '<';
}

// Reads the record of the folder's entry. Returns null when the entry is no process or memory runs out. Each
// file is parsed before the next is read, because they share one buffer.
qxapi_process* ReadProcessRecord(SnapshotSource* source) {
  ProcFolder& proc_folder = source->proc_folder;
  const std::string_view status = source->proc_text.Read(proc_folder.Open("status").Get());
  // Without a status the process may have ended meanwhile; then it has no record.
  if (status.empty() && !proc_folder.StillThere()) return nullptr;
  qxapi_process* const process = __qxapi_new_process__();
  if (process == nullptr) return nullptr;
  process->pid = proc_folder.Pid();
  StoreStatus(status, process);
  StoreCommandLine(source->proc_text.Read(proc_folder.Open("cmdline").Get()), process);
  StoreCounters(source->proc_text.Read(proc_folder.Open("stat").Get()), source->page_kb, process);
  StoreStateLetters(process);
  const char* const user_name = source->user_names.Find(process->uid);
  if (user_name != nullptr) process->owner = ::strdup(user_name);
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
    qxapi_process* const next_process = list->next;
    std::free(list->owner);
    std::free(list->name);
    std::free(list->command);
    std::free(list->argv);
    std::free(list->cmdline);
    std::free(list);
    list = next_process;
  }
  return 0;
}

qxapi_process* qxapi_open_process(const char* proc_root) {
  SnapshotSource source(proc_root);
  qxapi_process* first_process = nullptr;
  qxapi_process** process_link = &first_process;
  while (source.proc_folder.NextProcess()) {
    *process_link = ReadProcessRecord(&source);
    if (*process_link != nullptr) process_link = &(*process_link)->next;
  }
  return first_process;
}

int qxapi_has_process(const char* proc_root) {
  ProcFolder proc_folder(proc_root);
  while (proc_folder.NextProcess()) {
    if (proc_folder.StillThere()) return 1;
  }
  return 0;
}

void qxapi_close_process(qxapi_process* list) {
  __qxapi_free_process__(list);
}
