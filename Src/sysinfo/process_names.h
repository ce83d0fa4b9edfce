// The names alone of the host's process table: what a search needs, for a tenth of what whole records cost.
#ifndef SYSINFO_PROCESS_NAMES_H
#define SYSINFO_PROCESS_NAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sysinfo {

struct ProcessName {
  int32_t pid;
  const char* name;  // that of qxapi_process (qxapi_process.h); null when the process is there and unreadable
};

class ProcessNames {
 public:
  size_t Size() const { return entries_.size(); }
  // The name holds until the next Add, and as long as this object.
  ProcessName operator[](size_t index) const {
    const Entry& entry = entries_[index];
    return {entry.pid, entry.name == NAMELESS ? nullptr : names_.data() + entry.name};
  }
  // Copies the name. Without memory for it the process is nameless, without any it is left out.
  void Add(const ProcessName& process) noexcept;

 private:
  static constexpr uint32_t NAMELESS = UINT32_MAX;
  struct Entry {
    int32_t pid;
    uint32_t name;  // where it begins in names_
  };

  std::vector<Entry> entries_;
  std::string names_;  // each with its terminator
};

// A snapshot: the processes, in the order and with the names of qxapi_open_process. proc_root is where the
// process file system stands; when it cannot be opened there are none. Any number of threads may call it at
// the same time. It blocks as long as the kernel takes for one small file a process (some 3 microseconds
// each); no stop cuts it short.
ProcessNames ReadProcessNames(const char* proc_root = "/proc") noexcept;

}  // namespace sysinfo

#endif
