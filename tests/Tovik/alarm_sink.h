// The receiving ends of alarms as the tests use them, each in a process of its own (tests/peers).
#ifndef TESTS_TOVIK_ALARM_SINK_H
#define TESTS_TOVIK_ALARM_SINK_H

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/owners.h"
#include "support/support.h"

namespace alarm_test {

// A sink script with the folder that it fills. The destructor ends it.
class Sink {
 public:
  explicit Sink(const std::string& script, const std::vector<std::string>& options = {}) {
    const std::string out = folder_ / "out";
    std::vector<std::string> words = {"/usr/bin/python3", std::string(PEERS_FOLDER) + "/" + script,
                                      "--folder", folder_.Path()};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0644);
    if (posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    support::WaitUntil([&] { return support::ReadFile(out).ends_with('\n'); }, std::chrono::seconds(30));
    if (std::sscanf(support::ReadFile(out).c_str(), "port %d", &port_) != 1) port_ = 0;
  }
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  ~Sink() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }

  std::string Port() const { return std::to_string(port_); }
  // What the sink left under a name: complete, once it is there; empty when it does not come.
  std::string Kept(const std::string& name) const {
    const std::string path = folder_ / name;
    support::WaitUntil([&] { return ::access(path.c_str(), F_OK) == 0; });
    return support::ReadFile(path);
  }
  bool Has(const std::string& name) const { return ::access((folder_ / name).c_str(), F_OK) == 0; }
  const support::TempFolder& Folder() const { return folder_; }

 private:
  support::TempFolder folder_;
  pid_t pid_ = -1;
  int port_ = 0;
};

template <size_t Size>
void SetText(char (&variable)[Size], const std::string& text) {
  std::snprintf(variable, Size, "%s", text.c_str());
}

// The text with its "yyyy/mm/dd hh:mm:ss" behind a mark replaced by "DATE".
inline std::string WithoutDate(std::string text, const std::string& mark) {
  const size_t at = text.find(mark);
  if (at != std::string::npos) text.replace(at + mark.size(), 19, "DATE");
  return text;
}

}  // namespace alarm_test

#endif
