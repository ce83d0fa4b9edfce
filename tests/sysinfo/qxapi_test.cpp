// Snapshots of a process file system made of ordinary files. The fuzz target "proc" checks the parsers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <set>

#include "support/support.h"
#include "sysinfo/process_names.h"
#include "sysinfo/process_status.h"
#include "sysinfo/qxapi_process.h"
#include "sysinfo/qxapi_text.h"

namespace {

using namespace std::string_literals;
using Records = std::unique_ptr<qxapi_process, decltype(&qxapi_close_process)>;
using Names = std::multiset<std::pair<int32_t, std::string>>;  // each process's pid and name

constexpr const char* NAMELESS = "(null)";

class Snapshot : public testing::Test {
 protected:
  void Write(const std::string& entry, const std::string& file, const std::string& text) const {
    std::filesystem::create_directory(proc_ / entry);
    proc_.Write(entry + "/" + file, text);
  }
  void WriteStat(const std::string& comm, const std::string& nice, const std::string& pages) const {
    Write("7", "stat",
          "7 (" + comm + ") S 1 7 7 0 -1 4194304 103 0 0 0 250 125 1 2 20 " + nice + " 3 0 136868 3133440 " +
              pages + " 18446744073709551615 1 1 0\n");
  }
  Records Open() const { return {qxapi_open_process(proc_.Path().c_str()), qxapi_close_process}; }
  Names NamesOfRecords() const {
    Names names;
    const Records records = Open();
    for (auto* p = records.get(); p != nullptr; p = p->next)
      names.emplace(p->pid, p->name == nullptr ? NAMELESS : p->name);
    return names;
  }
  Names NamesAlone() const {
    Names names;
    const sysinfo::ProcessNames all = sysinfo::ReadProcessNames(proc_.Path().c_str());
    for (size_t i = 0; i < all.Size(); ++i)
      names.emplace(all[i].pid, all[i].name == nullptr ? NAMELESS : all[i].name);
    return names;
  }
  support::TempFolder proc_;
};

TEST_F(Snapshot, FillsAWholeRecord) {
  Write("7", "cmdline", "stt\0\0-x\0"s);
  Write("7", "status",
        "Name:\ta) R (b\nSTATE:\tS (sleeping)\nPid:\t77\nPPid:\t1\nUid:\t0\t1\nGid:\t3\t1\n"
        "VmSize:\t 3060 kB\nThreads:\t4\n");
  WriteStat("a) R (b", "-5", "376");
  const Records list = Open();
  ASSERT_NE(list, nullptr);
  const qxapi_process& p = *list;
  EXPECT_EQ(p.next, nullptr);
  EXPECT_EQ(p.pid, 77);  // the status file's
  EXPECT_EQ(std::string(p.cmdline, p.cmdline_len + 1), "stt\0\0-x\0\0"s);
  ASSERT_EQ(p.argc, 3U);
  EXPECT_EQ(p.argv[2], p.cmdline + 5);
  EXPECT_STREQ(p.command, "stt  -x");
  EXPECT_STREQ(p.name, "a) R (b");
  EXPECT_STREQ(p.state, "S <");
  EXPECT_STREQ(p.owner, "root");
  EXPECT_EQ(p.rss_kb, 376U * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE) / 1024));
  EXPECT_EQ(std::tuple(p.ppid, p.uid, p.gid, p.vmsize, p.threads, p.utime, p.stime, p.nice),
            std::tuple(1, 0U, 3U, 3060U, 4, 250U, 125U, -5));
}

TEST_F(Snapshot, ShowsTheStateInThreeLetters) {
  const char* const cases[][4] = {
      {"Z (zombie)", "0", "0", "Z  "}, {"R (running)", "5", "1", "R N"}, {"I (idle)", "-20", "0", "IW<"}};
  for (const auto& [state, nice, pages, letters] : cases) {
    Write("7", "status", "State:\t"s + state + "\n");
    WriteStat("x", nice, pages);
    EXPECT_STREQ(Open()->state, letters);
  }
}

TEST_F(Snapshot, HasEachFolderThatBeginsWithADigit) {
  for (const char* entry : {"12abc", "010", "0x1F", "self", "-5"}) Write(entry, "other", "");
  proc_.Write("99", "a file");
  EXPECT_EQ(NamesOfRecords(), (Names{{8, NAMELESS}, {12, NAMELESS}, {31, NAMELESS}}));
  EXPECT_STREQ(Open()->state, " W ");
  EXPECT_EQ(qxapi_open_process((proc_ / "none").c_str()), nullptr);
  EXPECT_EQ(qxapi_has_process(proc_.Path().c_str()), 1);
  EXPECT_EQ(qxapi_has_process((proc_ / "self").c_str()), 0);
  std::filesystem::create_directory(proc_ / "files");
  proc_.Write("files/99", "a file");
  EXPECT_EQ(qxapi_has_process((proc_ / "files").c_str()), 0);
}

TEST_F(Snapshot, LeavesOutWhatAProcessDoesNotHave) {
  Write("2", "cmdline", "");
  Write("2", "status", "Name:\tkthreadd\nState:\tS\nUid:\t3999999999\n");
  Write("2", "stat", "2 (kthreadd) S 0 0 0 0 -1 1 0 0 0 0 250 125 0 0 20 5 1 0 1");  // cut short
  const Records list = Open();
  ASSERT_NE(list, nullptr);
  EXPECT_TRUE(list->cmdline == nullptr && list->argv == nullptr && list->command == nullptr);
  EXPECT_STREQ(list->name, "kthreadd");
  EXPECT_STREQ(list->owner, "owner");
  EXPECT_EQ(list->utime, 0U);
}

// For every byte in a name, at its ends and inside.
TEST_F(Snapshot, OfNamesOnlyHasTheNamesOfTheRecords) {
  const std::string self = std::to_string(getpid());
  std::filesystem::create_symlink("/proc/" + self, proc_ / self);
  std::vector<std::string> names{
      "", "  ", "a) R (b", std::string(15, '\\'), std::string(15, '\n'), "longer than is kept"};
  for (int byte = 1; byte < 256; ++byte) {
    const std::string c(1, static_cast<char>(byte));
    for (const std::string& name : {c, c + "x" + c, "x" + c + "\n" + c, " " + c + c + " "})
      names.push_back(name);
  }
  for (const std::string& name : names) {
    ASSERT_EQ(prctl(PR_SET_NAME, name.c_str()), 0);
    const Names expected = NamesOfRecords();
    EXPECT_TRUE(expected.size() == 1 && expected.begin()->second != NAMELESS) << name;
    EXPECT_EQ(NamesAlone(), expected) << name;
  }
}

// The file of the process is a FIFO, which reads empty. Its writer first removes the process, or does not.
TEST_F(Snapshot, HasNoRecordOfAProcessThatEndedMeanwhile) {
  for (const std::string file : {"status", "comm"}) {
    for (const bool ends : {true, false}) {
      std::filesystem::create_directory(proc_ / "7");
      const std::string path = proc_ / ("7/" + file);
      ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
      std::thread process([&] {
        const base::UniqueFd opened(open(path.c_str(), O_WRONLY));
        if (ends) std::filesystem::remove_all(proc_ / "7");
      });
      const Names names = file == "comm" ? NamesAlone() : NamesOfRecords();
      process.join();
      EXPECT_EQ(names, ends ? Names{} : (Names{{7, NAMELESS}})) << file;
      std::filesystem::remove_all(proc_ / "7");
    }
  }
}

TEST_F(Snapshot, CutsACommandLineAtItsLimits) {
  Write("1", "cmdline", std::string(65536, 'a') + "b");
  EXPECT_EQ(Open()->cmdline[65536], 'b') << "beyond the first buffer";
  Write("1", "cmdline", std::string(3145727, 'a') + "b");
  EXPECT_EQ(Open()->cmdline_len, 3145727U);
  EXPECT_EQ(Open()->cmdline[3145726], 'a');
  Write("1", "cmdline", std::string(3145727, '\0'));
  EXPECT_EQ(Open()->argc, 393216U);
}

TEST(ProcessState, TellsTheDeadFromTheLiving) {
  const auto stat = [](const std::string& name, const std::string& state, int threads = 1) {
    return "4711 (" + name + ") " + state + " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 " +
           std::to_string(threads) + " 0 99 0\n";
  };
  const std::pair<std::string, bool> cases[] = {
      {stat("stt", "Z"), true},
      {stat("stt", "X"), true},
      {stat("Z) Z", "S"), false},
      {stat("a) S 1", "Z"), true},
      {stat("stt", "Z", 7), false},  // its first thread has ended, the others work
      {"", false},
      {"1 (x)", false},
      {"1 (x) ", false},
      {"1 (x) Z", true}};
  for (const auto& [text, dead] : cases) EXPECT_EQ(sysinfo::TellsZombie(text), dead) << text;
}

}  // namespace
