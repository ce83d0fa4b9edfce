// Iterates over the processes in the folder of the process file system.
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
  // If the folder cannot be opened, there are no entries.
  explicit ProcFolder(const char* root);

  // Moves to the next entry whose name begins with a digit, in the order of the folder. Returns false at the
  // end.
  bool Next();
  // The number at the start of the name, read as scanf's %i does.
  int32_t Pid() const { return pid_; }
  // Opens a file of the entry for reading.
  template <size_t N>
  base::UniqueFd Open(const char (&file)[N]) {
    static_assert(N <= LONGEST_FILE);
    std::memcpy(path_ + length_, file, N);
    return OpenPath();
  }
  // Whether the entry is still a folder; that of a process that has ended is not.
  bool Here();

 private:
  static constexpr size_t LONGEST_FILE = sizeof("cmdline");

  const char* NextName();
  base::UniqueFd OpenPath() const;

  // The size of the buffer for entries read ahead. The kernel needs a microsecond for each entry, and a
  // caller that only asks whether there is any process needs just the first.
  static constexpr size_t ENTRIES_SIZE = 4096;

  base::UniqueFd folder_;
  alignas(8) char entries_[ENTRIES_SIZE];
  size_t next_ = 0;  // in entries_
  size_t end_ = 0;
  int32_t pid_ = 0;
  char path_[NAME_MAX + 1 + LONGEST_FILE]{};  // relative to the folder: the entry's name, a slash, a file
  size_t length_ = 0;
};

}  // namespace sysinfo

#endif
