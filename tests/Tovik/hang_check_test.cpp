#include "Tovik/checks/hang_check.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "Tovik/engine_fixture.h"

namespace {

// This process plays the engine: it runs under the name and pid that it looks for.
class HangCheck : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/hangcheck.XXXXXX";
    folder_ = ::mkdtemp(pattern);
    DunraSTTUtils::SetHangPath((folder_ + "/").c_str());
    std::ifstream("/proc/self/comm") >> name_;
    std::snprintf(m_sz_proc_name, sizeof m_sz_proc_name, "%s", name_.c_str());
    std::snprintf(m_sz_svc_pid_file, sizeof m_sz_svc_pid_file, "%s/pid", folder_.c_str());
    listener_ = test::BoundSocket(true, &port_);
    m_PROC_PORT = port_;
    m_hang_save_flag = 1;
    WritePid(::getpid());
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  void WritePid(int pid) const { std::ofstream(folder_ + "/pid") << pid << "\n"; }
  // The hang log's lines, of which each check adds one.
  std::string Check() const {
    EXPECT_EQ(hangCheckProc(name_.c_str()), 1);
    std::string log;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_)) {
      if (entry.path().extension() != ".log") continue;
      std::getline(std::ifstream(entry.path()), log, '\0');
      std::filesystem::remove(entry.path());
    }
    return log;
  }
  std::string Line(const std::string& verdict) const {
    return "] : [[ " + name_ + " ] health check : " + verdict + "]\n";
  }

  std::string folder_;
  std::string name_;
  int port_ = 0;
  base::UniqueFd listener_;
};

TEST_F(HangCheck, TellsAliveFromDisconnected) {
  const auto alive = test::Messages(test::TraceOf([&] { EXPECT_TRUE(Check().ends_with(Line("alived"))); }));
  EXPECT_EQ(alive, (test::Lines{
                       "INFO try: hangCheckProc start [ 0 ]",
                       "DEBUG try: hangCheckProc Session_Create [127.0.0.1] [" + std::to_string(port_) + "]",
                       "DEBUG try: hangCheckProc Session_Destroy [ 0 ]"}));
  listener_.Reset();
  EXPECT_TRUE(Check().ends_with(Line("deaded - disconnect")));
  EXPECT_NE(::fcntl(0, F_GETFD), -1);
}

TEST_F(HangCheck, TakesAnotherPidForADeadProcess) {
  WritePid(::getppid());
  EXPECT_TRUE(Check().ends_with(Line("deaded - process")));
  WritePid(-1);
  EXPECT_TRUE(Check().ends_with(Line("deaded - process")));
  std::filesystem::remove(folder_ + "/pid");
  EXPECT_TRUE(Check().ends_with(Line("deaded - process")));
}

TEST_F(HangCheck, ProbesOnlyWhenHangSaveIsOne) {
  m_hang_save_flag = 2;
  EXPECT_TRUE(Check().ends_with(Line("deaded - process")));
}

}  // namespace
