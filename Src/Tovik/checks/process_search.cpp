#include "Tovik/checks/process_search.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/owners.h"
#include "base/stop.h"
#include "sysinfo/qxapi_process.h"

namespace {

constexpr size_t PID_FILE_SIZE = 1024;
constexpr int64_t SPACING_SECONDS = 1;

}  // namespace

sysinfo::ProcessNames SpacedSnapshot() {
  if (qxapi_has_process() == 1) base::SleepSeconds(SPACING_SECONDS);
  return sysinfo::ReadProcessNames();
}

SearchResult FindProcess(const sysinfo::ProcessNames& processes, const char* name, int64_t pid) {
  for (size_t i = 0; i < processes.Size(); ++i) {
    const sysinfo::ProcessName process = processes[i];
    if (process.name == nullptr) return {Search::NAMELESS, 0};
    if (std::strcmp(process.name, name) != 0) continue;
    if (pid == ANY_PID || pid == process.pid) return {Search::FOUND, process.pid};
  }
  return {Search::ABSENT, 0};
}

int CountProcesses(const sysinfo::ProcessNames& processes, const char* name) {
  int count = 0;
  for (size_t i = 0; i < processes.Size(); ++i) {
    const sysinfo::ProcessName process = processes[i];
    if (process.name == nullptr) return 0;
    if (std::strcmp(process.name, name) == 0) ++count;
  }
  return count;
}

bool ReadPidFile(const char* path, int64_t* pid) {
  const base::UniqueFile file(std::fopen(path, "re"));
  if (!file) return false;
  std::array<char, PID_FILE_SIZE + 1> text{};
  text[std::fread(text.data(), 1, PID_FILE_SIZE, file.get())] = '\0';
  *pid = std::atol(text.data());
  return true;
}
