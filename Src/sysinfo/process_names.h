// The process table reduced to pids and names. A search needs no more, and it costs a tenth of the whole
// records.
#ifndef SYSINFO_PROCESS_NAMES_H
#define SYSINFO_PROCESS_NAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sysinfo {

struct ProcessName {
  int32_t pid;
  const char* name;  // as in qxapi_process (qxapi_process.h); null when it cannot be read
};

class ProcessNames {
 public:
  size_t Size() const { return entries_.size(); }
  // The name stays valid until the next Add, at most as long as this object.
  ProcessName operator[](size_t index) const {
    const Entry& entry = entries_[index];
    return {entry.pid, entry.name == NAMELESS ? nullptr : names_.data() + entry.name};
  }
  // Copies the name. When memory runs out, the process has no name or is left out.
  void Add(const ProcessName& process) noexcept;

 private:
  static constexpr uint32_t NAMELESS = UINT32_MAX;
  struct Entry {
    int32_t pid;
    uint32_t name;  // its start in names_
  };

  std::vector<Entry> entries_;
  std::string names_;  // all names, each with its terminator
};

// Takes a snapshot of the processes, with the order and the names of qxapi_open_process. proc_root is where
// the process file system is mounted; if it cannot be opened, the snapshot is empty. Any number of threads
// may call this at once. It blocks while the kernel produces one small file per process (about 3 microseconds
// each); a stop does not cut it.
ProcessNames ReadProcessNames(const char* proc_root = "/proc") noexcept;

}  // namespace sysinfo

#endif
