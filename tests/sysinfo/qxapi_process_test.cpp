#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "sysinfo/proc_fixture.h"
#include "sysinfo/qxapi_internal.h"

namespace {

using namespace std::string_view_literals;

ProcessList Open(const ProcFixture& proc) {
  return ProcessList(qxapi_open_process(proc.Root()));
}

size_t Count(const ProcessList& list) {
  size_t count = 0;
  for (const qxapi_process* p = list.get(); p != nullptr; p = p->next) ++count;
  return count;
}

TEST(Snapshot, FillsAWholeRecord) {
  const ProcFixture proc;
  proc.Write("7/cmdline", "stt\0\0-x\0"sv);
  proc.Write("7/status",
             "Name:\ta) R (b\nState:\tS (sleeping)\nPid:\t77\nPPid:\t1\nUid:\t0\t1\nGid:\t3\t1\n"
             "VmSize:\t 3060 kB\nThreads:\t4\n");
  proc.Write("7/stat", StatText("a) R (b", "0", "376"));
  const ProcessList list = Open(proc);
  ASSERT_EQ(Count(list), 1U);
  const qxapi_process& p = *list;
  EXPECT_EQ(p.pid, 77);  // the status file's
  EXPECT_EQ(std::string_view(p.cmdline, p.cmdline_len + 1), "stt\0\0-x\0\0"sv);
  ASSERT_EQ(p.argc, 3U);
  EXPECT_STREQ(p.argv[2], "-x");
  EXPECT_EQ(p.argv[2], p.cmdline + 5);
  EXPECT_STREQ(p.command, "stt  -x");
  EXPECT_STREQ(p.name, "a) R (b");
  EXPECT_STREQ(p.state, "S  ");
  EXPECT_EQ(p.ppid, 1);
  EXPECT_EQ(p.uid, 0U);
  EXPECT_EQ(p.gid, 3U);
  EXPECT_STREQ(p.owner, "root");
  EXPECT_EQ(p.vmsize, 3060U);
  EXPECT_EQ(p.threads, 4);
  EXPECT_EQ(p.utime, 250U);
  EXPECT_EQ(p.stime, 125U);
  EXPECT_EQ(p.nice, 0);
  EXPECT_EQ(p.rss_kb, 376U * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE) / 1024));
}

TEST(Snapshot, TellsTheStateInThreeLetters) {
  struct Case {
    const char* state;
    const char* nice;
    const char* pages;
    const char* letters;
  };
  const Case cases[] = {{"S (sleeping)", "0", "1", "S  "}, {"S (sleeping)", "0", "0", "SW "},
                        {"Z (zombie)", "0", "0", "Z  "},   {"R (running)", "5", "1", "R N"},
                        {"D", "-5", "1", "D <"},           {"I (idle)", "-20", "0", "IW<"}};
  for (const Case& c : cases) {
    const ProcFixture proc;
    proc.Write("7/status", std::string("State:\t") + c.state + "\n");
    proc.Write("7/stat", StatText("x", c.nice, c.pages));
    const ProcessList list = Open(proc);
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list->state, c.letters);
  }
}

TEST(Snapshot, KeepsWhatIsLeftOfAProcess) {
  const ProcFixture proc;
  proc.Write("1/other", "");  // nothing left
  proc.Write("2/cmdline", "");
  proc.Write("2/status", "Name:\tkthreadd\nState:\tS\nUid:\t3999999999\n");
  proc.Write("2/stat", "2 (kthreadd) S 0 0 0 0 -1 1 0 0 0 0 250 125 0 0 20 5 1 0 1");  // cut short
  proc.Write("3/cmdline", "nameless\0"sv);
  proc.Write("3/status", "State:\tR\n");
  const ProcessList list = Open(proc);
  ASSERT_EQ(Count(list), 3U);

  const qxapi_process* const gone = FindPid(list, 1);
  ASSERT_NE(gone, nullptr);
  EXPECT_EQ(gone->name, nullptr);
  EXPECT_STREQ(gone->state, " W ");
  EXPECT_STREQ(gone->owner, "root");

  const qxapi_process* const kernel = FindPid(list, 2);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->cmdline, nullptr);
  EXPECT_EQ(kernel->argv, nullptr);
  EXPECT_EQ(kernel->argc, 0U);
  EXPECT_EQ(kernel->command, nullptr);
  EXPECT_STREQ(kernel->name, "kthreadd");
  EXPECT_STREQ(kernel->owner, "owner");
  EXPECT_EQ(kernel->utime, 0U);
  EXPECT_EQ(kernel->nice, 0);

  const qxapi_process* const nameless = FindPid(list, 3);
  ASSERT_NE(nameless, nullptr);
  EXPECT_EQ(nameless->name, nullptr);
  EXPECT_STREQ(nameless->command, "nameless");
}

TEST(Snapshot, TakesDirectoriesWithANumberInFront) {
  const ProcFixture proc;
  for (const char* entry : {"12abc", "010", "0x1F", "self", "-5", "."}) {
    proc.Write(std::string(entry) + "/other", "");
  }
  proc.Write("99", "a file");
  const ProcessList list = Open(proc);
  EXPECT_EQ(Count(list), 3U);
  for (const int32_t pid : {12, 8, 31}) EXPECT_NE(FindPid(list, pid), nullptr) << pid;
}

TEST(Snapshot, CutsACommandLineAtItsLimit) {
  const ProcFixture proc;
  proc.Write("1/cmdline", std::string(3145727, 'a') + "b");
  proc.Write("2/cmdline", std::string(65536, 'a') + "b");  // the first buffer and one byte
  proc.Write("3/cmdline", std::string(70000, '\0'));
  const ProcessList list = Open(proc);
  ASSERT_EQ(Count(list), 3U);
  EXPECT_EQ(FindPid(list, 1)->cmdline_len, 3145727U);
  EXPECT_EQ(FindPid(list, 1)->cmdline[3145726], 'a');
  EXPECT_EQ(FindPid(list, 2)->cmdline_len, 65537U);
  EXPECT_EQ(FindPid(list, 2)->cmdline[65536], 'b');
  EXPECT_EQ(FindPid(list, 3)->argc, 70000U);
  EXPECT_EQ(std::string(FindPid(list, 3)->command), std::string(69999, ' '));
}

TEST(Snapshot, IsEmptyWithoutProcesses) {
  const ProcFixture proc;
  proc.Write("self/status", "");
  EXPECT_EQ(qxapi_open_process(proc.Root()), nullptr);
  EXPECT_EQ(qxapi_open_process((std::string(proc.Root()) + "/none").c_str()), nullptr);
  qxapi_close_process(nullptr);
}

void FindThisProcess() {
  const ProcessList list(qxapi_open_process());
  const qxapi_process* const self = FindPid(list, ::getpid());
  ASSERT_NE(self, nullptr);
  EXPECT_STREQ(self->name, std::string(program_invocation_short_name).substr(0, 15).c_str());
  EXPECT_NE(std::strstr(self->argv[0], program_invocation_short_name), nullptr);
  EXPECT_EQ(self->ppid, ::getppid());
  EXPECT_EQ(self->uid, ::getuid());
  EXPECT_GT(self->vmsize, self->rss_kb);
  EXPECT_GT(self->rss_kb, 0U);
  EXPECT_GE(self->threads, 1);
}

TEST(Snapshot, FindsThisProcessFromSeveralThreads) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) threads.emplace_back(FindThisProcess);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
