// The scripted peers (tests/peers) as the tests use them, each in a process of its own.
#ifndef TESTS_TOVIK_ALARM_SINK_H
#define TESTS_TOVIK_ALARM_SINK_H

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/support.h"

namespace alarm_test {

// A script that prints its port, alone or as "port N". The destructor ends it.
class Script {
 public:
  Script(const std::string& name, const std::vector<std::string>& options) {
    std::string command = "echo $$; exec /usr/bin/python3 '" + (PEERS_FOLDER "/" + name) + "'";
    for (const std::string& word : options) command += " '" + word + "'";
    said_ = ::popen(command.c_str(), "re");
    if (std::fscanf(said_, "%d%*[^0-9]%d", &pid_, &port_) != 2) std::abort();
  }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;
  ~Script() {
    ::kill(pid_, SIGKILL);
    ::pclose(said_);
  }
  std::string Port() const { return std::to_string(port_); }

 private:
  FILE* said_ = nullptr;
  pid_t pid_ = 0;
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
