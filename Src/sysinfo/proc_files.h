// Reading the process file system: the folder with its processes, and its files.
#ifndef SYSINFO_PROC_FILES_H
#define SYSINFO_PROC_FILES_H

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/unique_handles.h"

namespace sysinfo {

// Iterates over the processes in the folder.
class ProcFolder {
 public:
  // If the folder cannot be opened, there are no entries.
  explicit ProcFolder(const char* proc_root);

  // Moves to the next entry whose name begins with a digit, in the order of the folder. Returns false at the
  // end.
  bool NextProcess();
  // The number at the start of the name, read as scanf's %i does.
  int32_t Pid() const { return proc_pid_; }
  // Opens a file of the entry for reading.
  template <size_t N>
  base::UniqueFd Open(const char (&proc_file)[N]) {
    static_assert(N <= LONGEST_PROC_FILE);
    std::memcpy(proc_path_ + proc_path_length_, proc_file, N);
    return OpenEntryFile();
  }
  // Whether the entry is still a folder; that of a process that has ended is not.
  bool StillThere();

 private:
  static constexpr size_t LONGEST_PROC_FILE = sizeof("cmdline");

  const char* NextEntryName();
  base::UniqueFd OpenEntryFile() const;

  // The size of the buffer for entries read ahead. The kernel needs a microsecond for each entry, and a
  // caller that only asks whether there is any process needs just the first.
  static constexpr size_t PROC_FOLDER_BUFFER = 4096;

  base::UniqueFd proc_folder_;
  alignas(8) char proc_folder_buffer_[PROC_FOLDER_BUFFER]{};
  size_t next_proc_entry_ = 0;  // in proc_folder_buffer_
  size_t proc_entries_end_ = 0;
  int32_t proc_pid_ = 0;
  // Relative to the folder: the entry's name, a slash, a file.
  char proc_path_[NAME_MAX + 1 + LONGEST_PROC_FILE]{};
  size_t proc_path_length_ = 0;
};

// Reads whole small files into one buffer that is used again.
class ProcText {
 public:
  static constexpr size_t PROC_TEXT_LIMIT = 3145727;

  // Reads at most LIMIT bytes of a file (borrowed). This takes one read(2) unless the file fills the buffer,
  // which then grows. When memory runs out, the text ends where the buffer does. The text is empty when the
  // file cannot be read or the descriptor is negative. It stays valid until the next call.
  std::string_view Read(int proc_fd);

 private:
  bool GrowText();

  base::UniqueText proc_text_;
  size_t proc_text_capacity_ = 0;
};

// The first bytes of a file, as a text.
class ProcHead {
 public:
  // Reads a file below the root. Returns false when it cannot be opened; when it cannot be read, the text is
  // empty.
  bool Read(const char* proc_root, const char* proc_file);
  const char* Text() const { return proc_head_.data(); }

 private:
  std::array<char, 4096 + 1> proc_head_;
};

}  // namespace sysinfo

#endif
