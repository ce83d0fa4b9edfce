#include "sysinfo/proc_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace sysinfo {
namespace {

// Larger than every ordinary file of a process; only long command lines and group lists need more.
constexpr size_t FIRST_PROC_TEXT = size_t{64} * 1024;

ssize_t ReadProcBytes(int proc_fd, char* text_end, size_t text_room) {
  ssize_t proc_bytes = 0;
  do {
    proc_bytes = ::read(proc_fd, text_end, text_room);
  } while (proc_bytes < 0 && errno == EINTR);
  return proc_bytes;
}

}  // namespace

ProcFolder::ProcFolder(const char* proc_root)
    : proc_folder_(::open(proc_root, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

// Returns null at the end.
const char* ProcFolder::NextEntryName() {
  if (next_proc_entry_ == proc_entries_end_) {
    const ssize_t proc_entries_size =
        proc_folder_.Valid()
            ? ::getdents64(proc_folder_.Get(), proc_folder_buffer_, sizeof proc_folder_buffer_)
            : 0;
    if (proc_entries_size <= 0) return nullptr;
    next_proc_entry_ = 0;
    proc_entries_end_ = static_cast<size_t>(proc_entries_size);
  }
  const auto* const proc_entry = reinterpret_cast<const dirent64*>(proc_folder_buffer_ + next_proc_entry_);
  next_proc_entry_ += proc_entry->d_reclen;
  return proc_entry->d_name;
}

bool ProcFolder::NextProcess() {
  const char* proc_entry_name = nullptr;
  do {
    proc_entry_name = NextEntryName();
    if (proc_entry_name == nullptr) return false;
  } while (proc_entry_name[0] < '0' || proc_entry_name[0] > '9');
  proc_pid_ = static_cast<int32_t>(std::strtol(proc_entry_name, nullptr, 0));
  proc_path_length_ = ::strnlen(proc_entry_name, NAME_MAX);
  std::memcpy(proc_path_, proc_entry_name, proc_path_length_);
  proc_path_[proc_path_length_++] = '/';
  return true;
}

bool ProcFolder::StillThere() {
  proc_path_[proc_path_length_] = '\0';
  struct stat proc_entry_status {};
  return ::fstatat(proc_folder_.Get(), proc_path_, &proc_entry_status, 0) == 0;
}

base::UniqueFd ProcFolder::OpenEntryFile() const {
  return base::UniqueFd(::openat(proc_folder_.Get(), proc_path_, O_RDONLY | O_CLOEXEC));
}

bool ProcText::GrowText() {
  const size_t proc_text_wanted = std::clamp(proc_text_capacity_ * 4, FIRST_PROC_TEXT, PROC_TEXT_LIMIT);
  if (proc_text_wanted == proc_text_capacity_ || !base::Resize(proc_text_, proc_text_wanted)) return false;
  proc_text_capacity_ = proc_text_wanted;
  return true;
}

std::string_view ProcText::Read(int proc_fd) {
  if (proc_fd < 0) return {};
  size_t proc_text_size = 0;
  while (proc_text_size < proc_text_capacity_ || GrowText()) {
    const ssize_t proc_bytes =
        ReadProcBytes(proc_fd, proc_text_.get() + proc_text_size, proc_text_capacity_ - proc_text_size);
    if (proc_bytes <= 0) break;
    proc_text_size += static_cast<size_t>(proc_bytes);
    if (proc_text_size < proc_text_capacity_) break;
  }
  return {proc_text_.get(), proc_text_size};
}

bool ProcHead::Read(const char* proc_root, const char* proc_file) {
  std::array<char, PATH_MAX> proc_path;
  const int proc_path_length =
      std::snprintf(proc_path.data(), proc_path.size(), "%s/%s", proc_root, proc_file);
  if (proc_path_length < 0 || static_cast<size_t>(proc_path_length) >= proc_path.size()) return false;
  const base::UniqueFd proc_head_file(::open(proc_path.data(), O_RDONLY | O_CLOEXEC));
  if (!proc_head_file.Valid()) return false;
  const ssize_t head_size = ReadProcBytes(proc_head_file.Get(), proc_head_.data(), proc_head_.size() - 1);
  proc_head_[head_size > 0 ? static_cast<size_t>(head_size) : 0] = '\0';
  return true;
}

}  // namespace sysinfo
