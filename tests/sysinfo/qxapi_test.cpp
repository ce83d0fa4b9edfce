// Snapshots of a process file system made of ordinary files. The fuzz target "proc" has the parsers' details.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "support/support.h"
#include "sysinfo/process_names.h"
#include "sysinfo/qxapi_internal.h"

namespace {

using namespace std::string_literals;

struct Close {
  void operator()(qxapi_process* list) const { qxapi_close_process(list); }
};
using ProcessList = std::unique_ptr<qxapi_process, Close>;

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
  using Named = std::pair<int32_t, std::optional<std::string>>;
  std::vector<Named> Names() const {
    const sysinfo::ProcessNames snapshot = sysinfo::ReadProcessNames(proc_.Path().c_str());
    std::vector<Named> names;
    for (size_t i = 0; i < snapshot.Size(); ++i) {
      const auto [pid, name] = snapshot[i];
      names.emplace_back(pid, name == nullptr ? std::nullopt : std::optional<std::string>(name));
    }
    return names;
  }
  // The same of whole records.
  std::vector<Named> NamesOfRecords() const {
    const ProcessList list = Open();
    std::vector<Named> names;
    for (const qxapi_process* p = list.get(); p != nullptr; p = p->next) {
      names.emplace_back(p->pid, p->name == nullptr ? std::nullopt : std::optional<std::string>(p->name));
    }
    return names;
  }
  ProcessList Open() const { return ProcessList(qxapi_open_process(proc_.Path().c_str())); }
  static const qxapi_process* Find(const ProcessList& list, int32_t pid) {
    const qxapi_process* process = list.get();
    while (process != nullptr && process->pid != pid) process = process->next;
    return process;
  }
  support::TempFolder proc_;
};

TEST_F(Snapshot, FillsAWholeRecord) {
  Write("7", "cmdline", "stt\0\0-x\0"s);
  Write("7", "status",
        "Name:\ta) R (b\nSTATE:\tS (sleeping)\nPid:\t77\nPPid:\t1\nUid:\t0\t1\nGid:\t3\t1\n"
        "VmSize:\t 3060 kB\nThreads:\t4\n");
  WriteStat("a) R (b", "-5", "376");
  const ProcessList list = Open();
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
  const int64_t figures[] = {p.ppid,           p.uid, p.gid, int64_t(p.vmsize), p.threads, int64_t(p.utime),
                             int64_t(p.stime), p.nice};
  const int64_t expected[] = {1, 0, 3, 3060, 4, 250, 125, -5};
  for (size_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(figures[i], expected[i]) << i;
}

TEST_F(Snapshot, TellsTheStateInThreeLetters) {
  const char* const cases[][4] = {
      {"Z (zombie)", "0", "0", "Z  "}, {"R (running)", "5", "1", "R N"}, {"I (idle)", "-20", "0", "IW<"}};
  for (const auto& [state, nice, pages, letters] : cases) {
    Write("7", "status", "State:\t"s + state + "\n");
    WriteStat("x", nice, pages);
    EXPECT_STREQ(Open()->state, letters);
  }
}

TEST_F(Snapshot, TakesProcessesAndWhatIsLeftOfThem) {
  for (const char* entry : {"12abc", "010", "0x1F", "self", "-5"}) Write(entry, "other", "");
  proc_.Write("99", "a file");
  Write("2", "cmdline", "");
  Write("2", "status", "Name:\tkthreadd\nState:\tS\nUid:\t3999999999\n");
  Write("2", "stat", "2 (kthreadd) S 0 0 0 0 -1 1 0 0 0 0 250 125 0 0 20 5 1 0 1");  // cut short
  const ProcessList list = Open();
  size_t count = 0;
  for (const qxapi_process* p = list.get(); p != nullptr; p = p->next) ++count;
  EXPECT_EQ(count, 4U);
  for (const int32_t pid : {12, 8, 31}) {
    ASSERT_NE(Find(list, pid), nullptr) << pid;
    EXPECT_STREQ(Find(list, pid)->state, " W ");
  }
  const qxapi_process* const kernel = Find(list, 2);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(Find(list, 12)->name, nullptr);
  EXPECT_TRUE(kernel->cmdline == nullptr && kernel->argv == nullptr && kernel->command == nullptr);
  EXPECT_STREQ(kernel->name, "kthreadd");
  EXPECT_STREQ(kernel->owner, "owner");
  EXPECT_EQ(kernel->utime, 0U);
  EXPECT_EQ(qxapi_open_process((proc_ / "none").c_str()), nullptr);
  EXPECT_TRUE(qxapi_has_process(proc_.Path().c_str()) == 1 && qxapi_has_process((proc_ / "2").c_str()) == 0);
}

// Whatever a process calls itself, with white space and escapes at its ends and between them.
TEST_F(Snapshot, OfNamesAloneHasTheNamesOfTheRecords) {
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
    const auto expected = NamesOfRecords();
    EXPECT_TRUE(expected.size() == 1 && expected[0].second) << name;
    EXPECT_EQ(Names(), expected) << name;
  }
}

// A name that is blank is a name.
TEST_F(Snapshot, TakesABlankNameForAName) {
  Write("7", "status", "Name:\t \t\nState:\tS (sleeping)\n");
  EXPECT_EQ(NamesOfRecords(), std::vector<Named>({{7, ""}}));
}

// Its file is opened, and the process ends before it is read; or is still there, and the file has nothing.
TEST_F(Snapshot, HasNoRecordOfAProcessThatVanishes) {
  for (const std::string file : {"status", "comm"}) {
    for (const bool vanishes : {true, false}) {
      std::filesystem::create_directory(proc_ / "7");
      const std::string path = proc_ / ("7/" + file);
      ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
      std::thread process([&] {
        const base::UniqueFd opened(open(path.c_str(), O_WRONLY));
        if (vanishes) std::filesystem::remove_all(proc_ / "7");
      });
      const auto names = file == "comm" ? Names() : NamesOfRecords();
      process.join();
      EXPECT_EQ(names, vanishes ? std::vector<Named>() : std::vector<Named>({{7, std::nullopt}})) << file;
      std::filesystem::remove_all(proc_ / "7");
    }
  }
}

TEST_F(Snapshot, CutsACommandLineAtItsLimits) {
  Write("1", "cmdline", std::string(3145727, 'a') + "b");
  Write("2", "cmdline", std::string(65536, 'a') + "b");
  Write("3", "cmdline", std::string(3145727, '\0'));
  const ProcessList list = Open();
  EXPECT_EQ(Find(list, 1)->cmdline_len, 3145727U);
  EXPECT_EQ(Find(list, 1)->cmdline[3145726], 'a');
  EXPECT_EQ(Find(list, 2)->cmdline[65536], 'b');
  EXPECT_EQ(Find(list, 3)->argc, 393216U);
}

}  // namespace
