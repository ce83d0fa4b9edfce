// Fixture: a folder with a configuration, a start script that notes each run, and the real tool.
#ifndef TESTS_CTL_TOOL_TEST_H
#define TESTS_CTL_TOOL_TEST_H

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/has.h"
#include "support/process.h"

namespace tooltest {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using support::Has;
using support::Joined;
using support::Process;
using support::ReadFile;
using support::WaitUntil;
using support::Words;

class ToolTest : public testing::Test {
 protected:
  ToolTest() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // what the tool leaves behind comes here, as to init
    fs::create_symlink("/bin/sleep", home_ / engine_);
    // "up" also starts an engine.
    script_ = home_.Write("run.sh",
                          "#!/bin/sh\ncd \"$(dirname \"$0\")\"\necho \"$*\" >> runs\n[ \"$1\" != up ] || ./" +
                              engine_ + " 600 > /dev/null 2>&1 &\nexit 0\n",
                          0755);
    config_ = "PROC_NAME " + engine_ + "\nBASE_PATH " + home_.Path() + "\nDEBUG_PATH " + home_.Path() +
              "\nWATCH_PATH ./log/\nHANG_PATH ./log/\nTXT_PATH ./engine/\nSHELL_FILE " TOOL
              "\nSHELL_METHOD start -- " +
              script_ + "\nHISTORY_PATH " + (home_ / "record") + "\n";
  }
  ~ToolTest() override { KillEngine(); }

  Words Tool(const Words& words) const {
    return Joined({TOOL, "-f", home_.Write("agent.conf", config_)}, words);
  }
  Words StartWords(const Words& options = {"--now"}, const std::string& what = "x") const {
    return Tool(Joined(Joined({"start"}, options), {"--", script_, what}));
  }
  Process Run(const Words& words) const { return Process(words, home_ / "out", home_ / "err"); }
  // The exit status.
  int Start(const Words& options = {"--now"}, const std::string& what = "x") const {
    return Run(StartWords(options, what)).ExitStatus();
  }
  size_t Runs() const { return support::Count(ReadFile(home_ / "runs"), "\n"); }
  std::string Errors() const { return ReadFile(home_ / "err"); }
  // The exit status of these words and what they print.
  struct Answer {
    int status;
    std::string text;
  };
  Answer Ask(const Words& words) const {
    fs::remove(home_ / "out");
    const int status = Run(words).ExitStatus();
    return {status, ReadFile(home_ / "out")};
  }
  Json History(const std::string& since = "1h") const {
    const auto [status, text] = Ask(Tool({"--json", "history", "--since", since}));
    EXPECT_EQ(status, 0) << Errors();
    return Json::parse(text, nullptr, false)["starts"];
  }
  std::string Records() const { return home_ / ("record/restarts-" + engine_ + "/"); }
  std::string EvidenceText() const {
    return ReadFile(Records() + "evidence/" + History().back()["evidence"].get<std::string>() + ".txt");
  }
  // Living ones, as the tool sees them.
  std::vector<pid_t> Engines() const {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      const pid_t pid = atoi(entry.path().filename().c_str());
      const std::string stat = pid > 0 ? ReadFile(entry.path() / "stat") : "";
      if (stat.find("(" + engine_ + ") ") != stat.npos && stat.find(") Z") == stat.npos) found.push_back(pid);
    }
    return found;
  }
  void KillEngine(int signal = SIGKILL) const {
    for (const pid_t pid : Engines()) kill(pid, signal);
    WaitUntil([this] {
      while (waitpid(-1, nullptr, WNOHANG) > 0) {
      }
      return Engines().empty();
    });
  }

  support::TempFolder home_;
  std::string engine_ = "ctl" + std::to_string(getpid());
  std::string script_;
  std::string config_;  // the last line of a key counts
};

}  // namespace tooltest

#endif
