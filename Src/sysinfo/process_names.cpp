#include "sysinfo/process_names.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "sysinfo/proc_folder.h"
#include "sysinfo/qxapi_internal.h"

namespace sysinfo {
namespace {

// Kernel threads have names of up to 63 bytes; a newline follows.
constexpr size_t COMM_SIZE = 64;

// Reads the file of a short name. Returns its length, or 0 when it cannot be read.
size_t ReadComm(const base::UniqueFd& file, char* text) {
  if (!file.Valid()) return 0;
  const ssize_t got = TEMP_FAILURE_RETRY(::read(file.Get(), text, COMM_SIZE));
  return got > 0 ? static_cast<size_t>(got) : 0;
}

}  // namespace

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
  ProcFolder folder(proc_root);
  while (folder.Next()) {
    char comm[COMM_SIZE];
    char name[2 * COMM_SIZE + 1];
    const size_t size = ReadComm(folder.Open("comm"), comm);
    // Without a name the process may have ended meanwhile; then it is left out.
    if (size == 0 && !folder.Here()) continue;
    name[NameFromComm({comm, size}, name)] = '\0';
    processes.Add({folder.Pid(), size > 0 ? name : nullptr});
  }
  return processes;
}

}  // namespace sysinfo
