// The scripted peers (tests/peers) as the tests use them, each in a process of its own.
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

// A script that prints its port, alone or as "port N". The destructor ends it.
class Script {
 public:
  Script(const std::string& name, const std::vector<std::string>& options) {
    const std::string out = folder_ / "out";
    std::vector<std::string> words = {"/usr/bin/python3", std::string(PEERS_FOLDER) + "/" + name};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    int input[2];  // at its end some scripts end
    if (::pipe2(input, O_CLOEXEC) != 0) return;
    const base::UniqueFd theirs(input[0]);
    input_ = base::UniqueFd(input[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, theirs.Get(), STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0644);
    if (posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    support::WaitUntil([&] { return support::ReadFile(out).ends_with('\n'); }, std::chrono::seconds(30));
    const std::string said = support::ReadFile(out);
    port_ = std::atoi(said.c_str() + (said.starts_with("port ") ? 5 : 0));
  }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;
  ~Script() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  std::string Port() const { return std::to_string(port_); }

 private:
  support::TempFolder folder_;
  base::UniqueFd input_;
  pid_t pid_ = -1;
  int port_ = 0;
};

// A sink script with the folder that it fills.
class Sink {
 public:
  explicit Sink(const std::string& script, std::vector<std::string> options = {})
      : script_(script, (options.insert(options.end(), {"--folder", folder_.Path()}), options)) {}
  std::string Port() const { return script_.Port(); }
  // What the sink left under a name: complete, once it is there; empty when it does not come.
  std::string Kept(const std::string& name) const {
    support::WaitUntil([&] { return Has(name); });
    return support::ReadFile(folder_ / name);
  }
  bool Has(const std::string& name) const { return ::access((folder_ / name).c_str(), F_OK) == 0; }
  const support::TempFolder& Folder() const { return folder_; }

 private:
  support::TempFolder folder_;
  Script script_;
};

template <size_t Size>
void SetText(char (&variable)[Size], const std::string& text) {
  std::snprintf(variable, Size, "%s", text.c_str());
}

}  // namespace alarm_test

#endif
