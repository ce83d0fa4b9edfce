#include "sysinfo/process_names.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "sysinfo/process_status.h"

namespace sysinfo {
namespace {

// Reads the file of a short name. Returns its length, or 0 when it cannot be read.
size_t ReadComm(const base::UniqueFd& file, char* text, size_t size) {
  if (!file.Valid()) return 0;
  const ssize_t got = TEMP_FAILURE_RETRY(::read(file.Get(), text, size));
  return got > 0 ? static_cast<size_t>(got) : 0;
}

}  // namespace

size_t NameFromComm(std::string_view text, char* name) {
  // The status file writes a newline as two characters, so it is not white space there.
  const auto trimmed = [](char c) { return IsWhite(c) && c != '\n'; };
  if (text.ends_with('\n')) text.remove_suffix(1);
  while (!text.empty() && trimmed(text.front())) text.remove_prefix(1);
  while (!text.empty() && trimmed(text.back())) text.remove_suffix(1);
  char* end = name;
  for (const char c : text) {
    if (c == '\n' || c == '\\') *end++ = '\\';
    *end++ = c == '\n' ? 'n' : c;
  }
  return static_cast<size_t>(end - name);
}

bool ProcessWalk::Next(ProcessName* process) noexcept {
  while (folder_.Next()) {
    char comm[COMM_SIZE];
    const size_t size = ReadComm(folder_.Open("comm"), comm, sizeof comm);
    // Without a name the process may have ended meanwhile; then it is left out.
    if (size == 0 && !folder_.Here()) continue;
    name_[NameFromComm({comm, size}, name_)] = '\0';
    *process = {folder_.Pid(), size > 0 ? name_ : nullptr};
    return true;
  }
  return false;
}

void ProcessNames::Add(const ProcessName& process) noexcept try {
  entries_.push_back({process.pid, NAMELESS});
  if (process.name == nullptr) return;
  const size_t start = names_.size();
  names_.append(process.name, std::strlen(process.name) + 1);
  entries_.back().name = static_cast<uint32_t>(start);
} catch (const std::bad_alloc&) {
}

ProcessNames ReadProcessNames(const char* proc_root) noexcept {
  ProcessNames processes;
  ProcessWalk walk(proc_root);
  ProcessName process{};
  while (walk.Next(&process)) processes.Add(process);
  return processes;
}

}  // namespace sysinfo
