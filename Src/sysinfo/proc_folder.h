// The folder of the process file system, process by process.
#ifndef SYSINFO_PROC_FOLDER_H
#define SYSINFO_PROC_FOLDER_H

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/owners.h"

namespace sysinfo {

class ProcFolder {
 public:
  // Without a folder of that name there are no entries.
  explicit ProcFolder(const char* root);

  // Goes to the next entry whose name begins as a number, in the order of the folder; false at the end.
  bool Next();
  // That number, read as scanf's %i does.
  int32_t Pid() const { return pid_; }
  // Opens a file of the entry for reading.
  template <size_t N>
  base::UniqueFd Open(const char (&file)[N]) {
    static_assert(N <= LONGEST_FILE);
    std::memcpy(path_ + length_, file, N);
    return OpenPath();
  }
  // Whether the entry is a folder, which that of a process that ended no longer is.
  bool Here();

 private:
  static constexpr size_t LONGEST_FILE = sizeof("cmdline");

  const char* NextName();
  base::UniqueFd OpenPath() const;

  // Of entries read ahead. The kernel takes a microsecond for each, and whoever only asks whether there is a
  // process wants but the first.
  static constexpr size_t ENTRIES_SIZE = 4096;

  base::UniqueFd folder_;
  alignas(8) char entries_[ENTRIES_SIZE];
  size_t next_ = 0;  // in entries_
  size_t end_ = 0;
  int32_t pid_ = 0;
  char path_[NAME_MAX + 1 + LONGEST_FILE]{};  // from the folder; the entry's name and a slash so far
  size_t length_ = 0;
};

}  // namespace sysinfo

#endif
