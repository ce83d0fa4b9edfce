// The process table against a bare walk of the same files. SnapshotOverWalk/N and NamesOverWalk/N, for the
// names alone, take turns between the two and give the microseconds of CPU for each process and the ratio.
// FirstLook/N is the look that a tick begins with. N sleeping children are added to the processes that run
// anyway.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <vector>

#include "base/unique_handles.h"
#include "rounds.h"
#include "sysinfo/process_names.h"
#include "sysinfo/qxapi_process.h"

namespace {

class Children {
 public:
  explicit Children(int64_t count) {
    const pid_t parent = ::getpid();
    while (count-- > 0) {
      const pid_t pid = ::fork();
      if (pid < 0) break;
      if (pid == 0) Sleep(parent);
      pids_.push_back(pid);
    }
  }
  ~Children() {
    for (const pid_t pid : pids_) ::kill(pid, SIGKILL);
    for (const pid_t pid : pids_) ::waitpid(pid, nullptr, 0);
  }
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;

  bool Complete(int64_t count) const { return static_cast<int64_t>(pids_.size()) == count; }

 private:
  [[noreturn]] static void Sleep(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (::getppid() == parent) ::pause();
    ::_exit(0);
  }

  std::vector<pid_t> pids_;
};

void ReadOnce(char* path, size_t length, const char* file, std::vector<char>* buffer) {
  std::strcpy(path + length, file);
  const base::UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
  if (fd.Valid()) benchmark::DoNotOptimize(::read(fd.Get(), buffer->data(), buffer->size()));
}

// The system calls that the task cannot do without, and nothing else.
void WalkOfRecords(std::vector<char>* buffer) {
  const base::UniqueDir directory(::opendir("/proc"));
  std::array<char, 512> path;
  std::strcpy(path.data(), "/proc/");
  while (const dirent* const entry = ::readdir(directory.get())) {
    if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
    std::strcpy(path.data() + 6, entry->d_name);
    struct stat status {};
    if (::stat(path.data(), &status) != 0 || !S_ISDIR(status.st_mode)) continue;
    const size_t length = std::strlen(path.data());
    for (const char* file : {"/cmdline", "/status", "/stat"}) ReadOnce(path.data(), length, file, buffer);
  }
}

void WalkOfNames() {
  const base::UniqueDir directory(::opendir("/proc"));
  std::array<char, 512> path;
  std::array<char, 64> buffer;
  while (const dirent* const entry = ::readdir(directory.get())) {
    if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
    const size_t length = std::strlen(entry->d_name);
    std::memcpy(path.data(), entry->d_name, length);
    std::memcpy(path.data() + length, "/comm", sizeof "/comm");
    const base::UniqueFd fd(::openat(::dirfd(directory.get()), path.data(), O_RDONLY | O_CLOEXEC));
    if (fd.Valid()) benchmark::DoNotOptimize(::read(fd.Get(), buffer.data(), buffer.size()));
  }
}

void OneSnapshot() {
  qxapi_process* const list = qxapi_open_process();
  benchmark::DoNotOptimize(list);
  qxapi_close_process(list);
}

void Names() {
  benchmark::DoNotOptimize(sysinfo::ReadProcessNames());
}

template <typename Ours, typename Floor>
void Compare(benchmark::State& state, Ours ours, Floor floor) {
  const Children children(state.range(0));
  if (!children.Complete(state.range(0))) return state.SkipWithError("cannot start that many processes");
  rounds::Pair pair;
  while (state.KeepRunning()) pair.Round(ours, floor);
  const auto processes = static_cast<double>(sysinfo::ReadProcessNames().Size());
  state.counters["processes"] = processes;
  state.counters["ours_us"] = pair.Ours() / processes * 1e6;
  state.counters["floor_us"] = pair.Floor() / processes * 1e6;
  state.counters["ratio"] = pair.Ratio();
  state.counters["best_ratio"] = pair.BestRatio();
}

void SnapshotOverWalk(benchmark::State& state) {
  std::vector<char> buffer(65536);
  Compare(state, OneSnapshot, [&] { WalkOfRecords(&buffer); });
}

void NamesOverWalk(benchmark::State& state) {
  Compare(state, Names, WalkOfNames);
}

void FirstLook(benchmark::State& state) {
  const Children children(state.range(0));
  while (state.KeepRunning()) benchmark::DoNotOptimize(qxapi_has_process());
}

BENCHMARK(SnapshotOverWalk)->Arg(0)->Iterations(60)->Unit(benchmark::kMillisecond);
BENCHMARK(SnapshotOverWalk)->Arg(100)->Iterations(400)->Unit(benchmark::kMillisecond);
BENCHMARK(SnapshotOverWalk)->Arg(1000)->Iterations(80)->Unit(benchmark::kMillisecond);
BENCHMARK(SnapshotOverWalk)->Arg(5000)->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(NamesOverWalk)->Arg(100)->Iterations(2000)->Unit(benchmark::kMillisecond);
BENCHMARK(NamesOverWalk)->Arg(1000)->Iterations(400)->Unit(benchmark::kMillisecond);
BENCHMARK(NamesOverWalk)->Arg(5000)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(FirstLook)->Arg(100)->Arg(5000)->Unit(benchmark::kMicrosecond);

}  // namespace
