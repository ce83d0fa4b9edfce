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
constexpr size_t FIRST_TEXT_CAPACITY = size_t{64} * 1024;

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
  if (next_entry_ == entries_end_) {
    const ssize_t entries_size =
        proc_folder_.Valid() ? ::getdents64(proc_folder_.Get(), proc_entries_, sizeof proc_entries_) : 0;
    if (entries_size <= 0) return nullptr;
    next_entry_ = 0;
    entries_end_ = static_cast<size_t>(entries_size);
  }
  const auto* const proc_entry = reinterpret_cast<const dirent64*>(proc_entries_ + next_entry_);
  next_entry_ += proc_entry->d_reclen;
  return proc_entry->d_name;
}

bool ProcFolder::NextProcess() {
  const char* entry_name = nullptr;
  do {
    entry_name = NextEntryName();
    if (entry_name == nullptr) return false;
  } while (entry_name[0] < '0' || entry_name[0] > '9');
  entry_pid_ = static_cast<int32_t>(std::strtol(entry_name, nullptr, 0));
  entry_path_length_ = ::strnlen(entry_name, NAME_MAX);
  std::memcpy(entry_path_, entry_name, entry_path_length_);
  entry_path_[entry_path_length_++] = '/';
  return true;
}

bool ProcFolder::StillThere() {
  entry_path_[entry_path_length_] = '\0';
  struct stat entry_status {};
  return ::fstatat(proc_folder_.Get(), entry_path_, &entry_status, 0) == 0;
}

base::UniqueFd ProcFolder::OpenEntryFile() const {
  return base::UniqueFd(::openat(proc_folder_.Get(), entry_path_, O_RDONLY | O_CLOEXEC));
}

bool ProcText::GrowText() {
  const size_t wanted_capacity = std::clamp(text_capacity_ * 4, FIRST_TEXT_CAPACITY, PROC_TEXT_LIMIT);
  if (wanted_capacity == text_capacity_ || !base::Resize(proc_text_, wanted_capacity)) return false;
  text_capacity_ = wanted_capacity;
  return true;
}

std::string_view ProcText::Read(int proc_fd) {
  if (proc_fd < 0) return {};
  size_t text_size = 0;
  while (text_size < text_capacity_ || GrowText()) {
    const ssize_t proc_bytes =
        ReadProcBytes(proc_fd, proc_text_.get() + text_size, text_capacity_ - text_size);
    if (proc_bytes <= 0) break;
    text_size += static_cast<size_t>(proc_bytes);
    if (text_size < text_capacity_) break;
  }
  return {proc_text_.get(), text_size};
}

bool ProcHead::Read(const char* proc_root, const char* proc_file) {
  std::array<char, PATH_MAX> head_path;
  const int path_length = std::snprintf(head_path.data(), head_path.size(), "%s/%s", proc_root, proc_file);
  if (path_length < 0 || static_cast<size_t>(path_length) >= head_path.size()) return false;
  const base::UniqueFd head_file(::open(head_path.data(), O_RDONLY | O_CLOEXEC));
  if (!head_file.Valid()) return false;
  const ssize_t head_size = ReadProcBytes(head_file.Get(), proc_head_.data(), proc_head_.size() - 1);
  proc_head_[head_size > 0 ? static_cast<size_t>(head_size) : 0] = '\0';
  return true;
}

}  // namespace sysinfo
