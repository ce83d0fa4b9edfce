// A process file system made of ordinary files in a temporary folder.
#ifndef TESTS_SYSINFO_PROC_FIXTURE_H
#define TESTS_SYSINFO_PROC_FIXTURE_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "sysinfo/qxapi_process.h"

class ProcFixture {
 public:
  ProcFixture() {
    std::string path = (std::filesystem::temp_directory_path() / "proc-XXXXXX").string();
    if (::mkdtemp(path.data()) != nullptr) root_ = path;
  }
  ~ProcFixture() { std::filesystem::remove_all(root_); }
  ProcFixture(const ProcFixture&) = delete;
  ProcFixture& operator=(const ProcFixture&) = delete;

  const char* Root() const { return root_.c_str(); }
  void Write(const std::string& file, std::string_view content) const {
    const std::filesystem::path path = std::filesystem::path(root_) / file;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }

 private:
  std::string root_;
};

// The text of a stat file, its comm as given.
inline std::string StatText(const std::string& comm, const std::string& nice, const std::string& pages) {
  return "7 (" + comm + ") S 1 7 7 0 -1 4194304 103 0 0 0 250 125 1 2 20 " + nice + " 3 0 136868 3133440 " +
         pages + " 18446744073709551615 1 1 0\n";
}

struct ProcessListCloser {
  void operator()(qxapi_process* list) const { qxapi_close_process(list); }
};
using ProcessList = std::unique_ptr<qxapi_process, ProcessListCloser>;

inline const qxapi_process* FindPid(const ProcessList& list, int32_t pid) {
  const qxapi_process* process = list.get();
  while (process != nullptr && process->pid != pid) process = process->next;
  return process;
}

#endif
