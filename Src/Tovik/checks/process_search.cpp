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

constexpr size_t SEARCHED_PID_FILE_SIZE = 1024;
constexpr int64_t SEARCH_SPACING_SECONDS = 1;
constexpr size_t SEARCHED_LINK_SIZE = 251;

bool IsPidFolder(const char* searchedName) {
  return *searchedName != '\0' &&
         std::all_of(searchedName, searchedName + std::strlen(searchedName),
                     [](char digit) { return std::isdigit(static_cast<unsigned char>(digit)) != 0; });
}

std::string SearchedExecutable(const std::string& processFolder) {
  std::array<char, SEARCHED_LINK_SIZE> searchedLink;
  const ssize_t searchedLength =
      ::readlink((processFolder + "/exe").c_str(), searchedLink.data(), searchedLink.size());
  return searchedLength < 0 ? std::string()
                            : std::string(searchedLink.data(), static_cast<size_t>(searchedLength));
}

void WaitBetweenSearches() {
  if (qxapi_has_process() == 1) base::SleepSeconds(SEARCH_SPACING_SECONDS);
}

}  // namespace

SearchResult FindProcess(const ProcessSource& nextProcess, const char* soughtName, int64_t soughtPid,
                         bool (*isDead)(int32_t pid)) {
  Search searchVerdict = Search::NO_TABLE;
  sysinfo::ProcessName candidate{};
  while (nextProcess(&candidate)) {
    searchVerdict = Search::ABSENT;
    if (candidate.name == nullptr) return {Search::NAMELESS, 0};
    if (std::strcmp(candidate.name, soughtName) != 0) continue;
    if (soughtPid != SEARCH_ANY_PID && soughtPid != candidate.pid) continue;
    if (isDead == nullptr || !isDead(candidate.pid)) return {Search::FOUND, candidate.pid};
  }
  return {searchVerdict, 0};
}

SearchResult FindEngine(const char* soughtName, int64_t soughtPid) {
  WaitBetweenSearches();
  sysinfo::ProcessWalk searchWalk;
  return FindProcess([&searchWalk](sysinfo::ProcessName* candidate) { return searchWalk.Next(candidate); },
                     soughtName, soughtPid, m_zombie_dead != 0 ? sysinfo::IsZombie : nullptr);
}

sysinfo::ProcessNames SpacedSnapshot() {
  WaitBetweenSearches();
  return sysinfo::ReadProcessNames();
}

int CountProcesses(const sysinfo::ProcessNames& processes, const char* soughtName) {
  int processesFound = 0;
  for (size_t i = 0; i < processes.Size(); ++i) {
    const sysinfo::ProcessName candidate = processes[i];
    if (candidate.name == nullptr) return 0;
    if (std::strcmp(candidate.name, soughtName) == 0) ++processesFound;
  }
  return processesFound;
}

bool ReadPidFile(const char* pidFilePath, int64_t* processPid) {
  const base::UniqueFd processPidFile = base::OpenRegular(pidFilePath);
  if (!processPidFile.Valid()) return false;
  std::array<char, SEARCHED_PID_FILE_SIZE> processPidText;
  *processPid =
      base::LeadingNumber({processPidText.data(), base::ReadUpTo(processPidFile.Get(), processPidText.data(),
                                                                 processPidText.size())});
  return true;
}

pid_t getProcessID(const char* soughtText, const char* proc_root) {
  const base::UniqueDir searchedRoot(::opendir(proc_root));
  const dirent* searchedEntry = nullptr;
  while (searchedRoot && (searchedEntry = ::readdir(searchedRoot.get())) != nullptr) {
    if (!IsPidFolder(searchedEntry->d_name)) continue;
    const std::string searchedExecutable =
        SearchedExecutable(std::string(proc_root) + "/" + searchedEntry->d_name);
    if (searchedExecutable.empty() || searchedExecutable.find(soughtText) == std::string::npos) continue;
    const auto foundPid = static_cast<pid_t>(base::LeadingNumber(searchedEntry->d_name));
    std::printf("getProcessID(%s) :Found. id = %d\n", soughtText, foundPid);
    return foundPid;
  }
  std::printf("getProcessID(%s) : id = 0 (could not find process)\n", soughtText);
  return 0;
}
