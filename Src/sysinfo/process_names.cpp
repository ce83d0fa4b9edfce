#include "sysinfo/process_names.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "sysinfo/process_status.h"

namespace sysinfo {
namespace {

// Reads the file of a short name. Returns its length, or 0 when it cannot be read.
size_t ReadComm(const base::UniqueFd& comm_file, char* comm, size_t size) {
  if (!comm_file.Valid()) return 0;
  const ssize_t comm_size = TEMP_FAILURE_RETRY(::read(comm_file.Get(), comm, size));
  return comm_size > 0 ? static_cast<size_t>(comm_size) : 0;
}

}  // namespace

size_t NameFromComm(std::string_view comm, char* name) {
  // The status file writes a newline as two characters, so it is not white space there.
  const auto trimmed_from_name = [](char c) { return IsStatusWhite(c) && c != '\n'; };
  if (comm.ends_with('\n')) comm.remove_suffix(1);
  while (!comm.empty() && trimmed_from_name(comm.front())) comm.remove_prefix(1);
  while (!comm.empty() && trimmed_from_name(comm.back())) comm.remove_suffix(1);
  char* shown_name_end = name;
  for (const char c : comm) {
    if (c == '\n' || c == '\\') *shown_name_end++ = '\\';
    *shown_name_end++ = c == '\n' ? 'n' : c;
  }
  return static_cast<size_t>(shown_name_end - name);
}

bool ProcessWalk::Next(ProcessName* process) noexcept {
  while (names_folder_.NextProcess()) {
    char comm[COMM_SIZE];
    const size_t comm_size = ReadComm(names_folder_.Open("comm"), comm, sizeof comm);
    // Without a name the process may have ended meanwhile; then it is left out.
    if (comm_size == 0 && !names_folder_.StillThere()) continue;
    shown_name_[NameFromComm({comm, comm_size}, shown_name_)] = '\0';
    *process = {names_folder_.Pid(), comm_size > 0 ? shown_name_ : nullptr};
    return true;
  }
  return false;
}

void ProcessNames::Add(const ProcessName& process) noexcept try {
  processes_.push_back({process.pid, NAMELESS});
  if (process.name == nullptr) return;
  const size_t name_start = all_names_.size();
  all_names_.append(process.name, std::strlen(process.name) + 1);
  processes_.back().name_start = static_cast<uint32_t>(name_start);
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
