// The process table against a bare walk of the same files. Walk/N and Snapshot/N are the two alone;
// SnapshotOverWalk/N takes turns between them and gives the ratio of their best rounds, free of what else
// the machine does meanwhile. N sleeping children are added to the processes that run anyway.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <vector>

#include "base/owners.h"
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
void BareWalk(std::vector<char>* buffer) {
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

void OneSnapshot() {
  qxapi_process* const list = qxapi_open_process();
  benchmark::DoNotOptimize(list);
  qxapi_close_process(list);
}

template <typename Run>
double Seconds(Run run) {
  const auto start = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Walk(benchmark::State& state) {
  const Children children(state.range(0));
  std::vector<char> buffer(65536);
  while (state.KeepRunning()) BareWalk(&buffer);
}

void Snapshot(benchmark::State& state) {
  const Children children(state.range(0));
  while (state.KeepRunning()) OneSnapshot();
}

void SnapshotOverWalk(benchmark::State& state) {
  const Children children(state.range(0));
  if (!children.Complete(state.range(0))) return state.SkipWithError("cannot start that many processes");
  std::vector<char> buffer(65536);
  std::vector<double> walks;
  std::vector<double> snapshots;
  while (state.KeepRunning()) {
    walks.push_back(Seconds([&] { BareWalk(&buffer); }));
    snapshots.push_back(Seconds(OneSnapshot));
  }
  const auto half = static_cast<std::ptrdiff_t>(walks.size() / 2);
  state.counters["best"] =
      *std::min_element(snapshots.begin(), snapshots.end()) / *std::min_element(walks.begin(), walks.end());
  std::nth_element(walks.begin(), walks.begin() + half, walks.end());
  std::nth_element(snapshots.begin(), snapshots.begin() + half, snapshots.end());
  state.counters["median"] = snapshots[walks.size() / 2] / walks[walks.size() / 2];
}

BENCHMARK(Walk)->Arg(100)->Arg(1000)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Snapshot)->Arg(100)->Arg(1000)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(SnapshotOverWalk)->Arg(100)->Iterations(400)->Unit(benchmark::kMillisecond);
BENCHMARK(SnapshotOverWalk)->Arg(1000)->Iterations(100)->Unit(benchmark::kMillisecond);
BENCHMARK(SnapshotOverWalk)->Arg(5000)->Iterations(30)->Unit(benchmark::kMillisecond);

}  // namespace
