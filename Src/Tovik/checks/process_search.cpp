#include "Tovik/checks/process_search.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "Tovik/config/config.h"
#include "base/number.h"
#include "base/regular_file.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "sysinfo/process_status.h"
#include "sysinfo/qxapi_process.h"

namespace {

constexpr size_t PID_FILE_SIZE = 1024;
constexpr int64_t SEARCH_SPACING_SECONDS = 1;
constexpr size_t EXECUTABLE_LINK_SIZE = 251;

bool IsPidFolder(const char* name) {
  return *name != '\0' && std::all_of(name, name + std::strlen(name), [](char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
  });
}

std::string ExecutableOf(const std::string& processFolder) {
  std::array<char, EXECUTABLE_LINK_SIZE> executable;
  const ssize_t length = ::readlink((processFolder + "/exe").c_str(), executable.data(), executable.size());
  return length < 0 ? std::string() : std::string(executable.data(), static_cast<size_t>(length));
}

void WaitBetweenProcessLooks() {
  if (qxapi_has_process() == 1) base::SleepSeconds(SEARCH_SPACING_SECONDS);
}

}  // namespace

SearchResult FindProcess(const ProcessSource& next, const char* name, int64_t pid,
                         bool (*isDead)(int32_t pid)) {
  Search verdict = Search::NO_TABLE;
  sysinfo::ProcessName process{};
  while (next(&process)) {
    verdict = Search::ABSENT;
    if (process.name == nullptr) return {Search::NAMELESS, 0};
    if (std::strcmp(process.name, name) != 0) continue;
    if (pid != ANY_PID && pid != process.pid) continue;
    if (isDead == nullptr || !isDead(process.pid)) return {Search::FOUND, process.pid};
  }
  return {verdict, 0};
}

SearchResult FindEngine(const char* name, int64_t pid) {
  WaitBetweenProcessLooks();
  sysinfo::ProcessWalk walk;
  return FindProcess([&walk](sysinfo::ProcessName* process) { return walk.Next(process); }, name, pid,
                     m_zombie_dead != 0 ? sysinfo::IsZombie : nullptr);
}

sysinfo::ProcessNames SpacedSnapshot() {
  WaitBetweenProcessLooks();
  return sysinfo::ReadProcessNames();
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
  const base::UniqueFd pidFile = base::OpenRegular(path);
  if (!pidFile.Valid()) return false;
  std::array<char, PID_FILE_SIZE> pidText;
  *pid = base::LeadingNumber({pidText.data(), base::ReadUpTo(pidFile.Get(), pidText.data(), pidText.size())});
  return true;
}

pid_t getProcessID(const char* text, const char* proc_root) {
  const base::UniqueDir root(::opendir(proc_root));
  const dirent* entry = nullptr;
  while (root && (entry = ::readdir(root.get())) != nullptr) {
    if (!IsPidFolder(entry->d_name)) continue;
    const std::string executable = ExecutableOf(std::string(proc_root) + "/" + entry->d_name);
    if (executable.empty() || executable.find(text) == std::string::npos) continue;
    const auto pid = static_cast<pid_t>(base::LeadingNumber(entry->d_name));
    std::printf("getProcessID(%s) :Found. id = %d\n", text, pid);
    return pid;
  }
  std::printf("getProcessID(%s) : id = 0 (could not find process)\n", text);
  return 0;
}
