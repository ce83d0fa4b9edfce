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
  explicit SnapshotSource(const char* proc_root) : qxapi_folder(proc_root) {}

  ProcFolder qxapi_folder;
  ProcText proc_text;
  UserNames user_names;
  uint64_t page_kb = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) >> 10;
};

char* CopyProcessText(std::string_view process_text) {
  auto* const process_copy = static_cast<char*>(std::malloc(process_text.size() + 1));
  if (process_copy == nullptr) return nullptr;
  std::memcpy(process_copy, process_text.data(), process_text.size());
  process_copy[process_text.size()] = '\0';
  return process_copy;
}

void StoreCommandLine(std::string_view cmdline, qxapi_process* qxapi_record) {
  if (cmdline.empty()) return;
  qxapi_record->cmdline = CopyProcessText(cmdline);
  if (qxapi_record->cmdline != nullptr) {
    qxapi_record->cmdline_len = cmdline.size();
    __qxapi_command_line_decoder__(qxapi_record->cmdline, cmdline.size(), &qxapi_record->argc,
                                   &qxapi_record->argv);
  }
  qxapi_record->command = CopyProcessText(cmdline);
  if (qxapi_record->command != nullptr) {
    std::replace(qxapi_record->command, qxapi_record->command + cmdline.size() - 1, '\0', ' ');
  }
}

void StoreStatus(std::string_view status, qxapi_process* qxapi_record) {
  sysinfo::StatusFields qxapi_fields;
  qxapi_fields.pid = qxapi_record->pid;
  sysinfo::ParseStatus(status, &qxapi_fields);
  qxapi_record->pid = qxapi_fields.pid;
  if (qxapi_fields.name) qxapi_record->name = CopyProcessText(*qxapi_fields.name);
  qxapi_record->state[0] = qxapi_fields.state;
  qxapi_record->ppid = qxapi_fields.ppid;
  qxapi_record->uid = qxapi_fields.uid;
  qxapi_record->gid = qxapi_fields.gid;
  qxapi_record->vmsize = qxapi_fields.vmsize;
  qxapi_record->threads = qxapi_fields.threads;
}

void StoreCounters(std::string_view stat, uint64_t page_kb, qxapi_process* qxapi_record) {
  const auto qxapi_counters = sysinfo::ParseStat(stat);
  if (!qxapi_counters) return;
  qxapi_record->utime = qxapi_counters->utime;
  qxapi_record->stime = qxapi_counters->stime;
  qxapi_record->nice = qxapi_counters->nice;
  qxapi_record->rss_kb = page_kb * qxapi_counters->pages;
}

void StoreStateLetters(qxapi_process* qxapi_record) {
  if (qxapi_record->rss_kb == 0 && qxapi_record->state[0] != 'Z') qxapi_record->state[1] = 'W';
  if (qxapi_record->nice != 0) qxapi_record->state[2] = qxapi_record->nice > 0 ? 'N' : '<';
}

// Reads the record of the folder's entry. Returns null when the entry is no process or memory runs out. Each
// file is parsed before the next is read, because they share one buffer.
qxapi_process* ReadProcessRecord(SnapshotSource* source) {
  ProcFolder& qxapi_folder = source->qxapi_folder;
  const std::string_view status = source->proc_text.Read(qxapi_folder.Open("status").Get());
  // Without a status the process may have ended meanwhile; then it has no record.
  if (status.empty() && !qxapi_folder.StillThere()) return nullptr;
  qxapi_process* const qxapi_record = __qxapi_new_process__();
  if (qxapi_record == nullptr) return nullptr;
  qxapi_record->pid = qxapi_folder.Pid();
  StoreStatus(status, qxapi_record);
  StoreCommandLine(source->proc_text.Read(qxapi_folder.Open("cmdline").Get()), qxapi_record);
  StoreCounters(source->proc_text.Read(qxapi_folder.Open("stat").Get()), source->page_kb, qxapi_record);
  StoreStateLetters(qxapi_record);
  const char* const user_name = source->user_names.Find(qxapi_record->uid);
  if (user_name != nullptr) qxapi_record->owner = ::strdup(user_name);
  return qxapi_record;
}

}  // namespace

qxapi_process* __qxapi_new_process__() {
  auto* const qxapi_record = static_cast<qxapi_process*>(std::calloc(1, sizeof(qxapi_process)));
  if (qxapi_record != nullptr) std::memcpy(qxapi_record->state, "   ", sizeof(qxapi_record->state));
  return qxapi_record;
}

int __qxapi_free_process__(qxapi_process* list) {
  while (list != nullptr) {
    qxapi_process* const next_record = list->next;
    std::free(list->owner);
    std::free(list->name);
    std::free(list->command);
    std::free(list->argv);
    std::free(list->cmdline);
    std::free(list);
    list = next_record;
  }
  return 0;
}

qxapi_process* qxapi_open_process(const char* proc_root) {
  SnapshotSource source(proc_root);
  qxapi_process* first_record = nullptr;
  qxapi_process** qxapi_link = &first_record;
  while (source.qxapi_folder.NextProcess()) {
    *qxapi_link = ReadProcessRecord(&source);
    if (*qxapi_link != nullptr) qxapi_link = &(*qxapi_link)->next;
  }
  return first_record;
}

int qxapi_has_process(const char* proc_root) {
  ProcFolder qxapi_folder(proc_root);
  while (qxapi_folder.NextProcess()) {
    if (qxapi_folder.StillThere()) return 1;
  }
  return 0;
}

void qxapi_close_process(qxapi_process* list) {
  __qxapi_free_process__(list);
}
