// The process table reduced to pids and names. A search needs no more, and it costs a tenth of the whole
// records.
#ifndef SYSINFO_PROCESS_NAMES_H
#define SYSINFO_PROCESS_NAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sysinfo/proc_files.h"

namespace sysinfo {

struct ProcessName {
  int32_t pid;
  const char* name;  // as in qxapi_process (qxapi_process.h); null when it cannot be read
};

// Turns the text of /proc/PID/comm into the name that /proc/PID/status shows. name must have room for twice
// its length. Returns the name's length; no terminator is written.
size_t NameFromComm(std::string_view comm, char* name);

// Walks over the processes as they are, with the order and the names of qxapi_open_process. proc_root is
// where the process file system is mounted; if it cannot be opened, there are none. The kernel produces one
// small file for each process that is asked for (about 3 microseconds each); a stop does not cut it.
class ProcessWalk {
 public:
  explicit ProcessWalk(const char* proc_root = "/proc") : names_folder_(proc_root) {}
  // The next process; false at the end. Its name stays valid until the next call.
  bool Next(ProcessName* process) noexcept;

 private:
  // Kernel threads have names of up to 63 bytes; a newline follows.
  static constexpr size_t COMM_SIZE = 64;

  ProcFolder names_folder_;
  char shown_name_[2 * COMM_SIZE + 1]{};  // an escaped byte takes two
};

class ProcessNames {
 public:
  size_t Size() const { return processes_.size(); }
  // The name stays valid until the next Add, at most as long as this object.
  ProcessName operator[](size_t name_index) const {
    const NameEntry& name_entry = processes_[name_index];
    return {name_entry.pid,
            name_entry.name_start == NAMELESS ? nullptr : all_names_.data() + name_entry.name_start};
  }
  // Copies the name. When memory runs out, the process has no name or is left out.
  void Add(const ProcessName& process) noexcept;

 private:
  static constexpr uint32_t NAMELESS = UINT32_MAX;
  struct NameEntry {
    int32_t pid;
    uint32_t name_start;  // its start in all_names_
  };

  std::vector<NameEntry> processes_;
  std::string all_names_;  // all names, each with its terminator
};

// Takes a snapshot of all processes (ProcessWalk). Any number of threads may call this at once.
ProcessNames ReadProcessNames(const char* proc_root = "/proc") noexcept;

}  // namespace sysinfo

#endif
