// One trace line against the calls that it cannot do without: the clock, the echo's write, one look at the
// folder, and open, write and close of the file. TraceLine gives the medians of both in nanoseconds of CPU,
// what the agent's own code adds, and the ratio; echo_code_ns is what the own code adds to a line that is
// only echoed, where fewer system calls leave the processor's caches to it. Standard output must be /dev/null
// or a file.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "base/unique_handles.h"
#include "rounds.h"
#include "utils/trace_log.h"

namespace {

constexpr int LINES_A_ROUND = 500;
constexpr char NAME[] = "stt_engine";

// The echo of this process goes nowhere while this lives; the benchmark's own report goes where it went
// before.
class SilentOutput {
 public:
  SilentOutput() : kept_(::dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const base::UniqueFd nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    ::dup2(nowhere.Get(), STDOUT_FILENO);
  }
  ~SilentOutput() {
    std::fflush(stdout);
    ::dup2(kept_.Get(), STDOUT_FILENO);
  }
  SilentOutput(const SilentOutput&) = delete;
  SilentOutput& operator=(const SilentOutput&) = delete;

 private:
  base::UniqueFd kept_;
};

class LogFolder {
 public:
  LogFolder() {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
    DunraSTTUtils::SetPath((path_ + "/").c_str());
    DunraSTTUtils::SetLogLevel(TRACE_INFO);
  }
  ~LogFolder() { std::filesystem::remove_all(path_); }
  LogFolder(const LogFolder&) = delete;
  LogFolder& operator=(const LogFolder&) = delete;
  // The log of today, which a first line makes.
  std::string File() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_)) {
      if (entry.is_regular_file()) return entry.path();
    }
    std::abort();
  }

 private:
  std::string path_ = "/tmp/trace_bench.XXXXXX";
};

void Trace(long level, const char* name, long save = 1) {
  DUNRA_TRACE(TRACE_ORDINARY, level, TRACE_MAIN_CHANNEL, save,
              "match inputProcessName [ %s ] systemProcessName [ %s ] systemProcessID [ %d ]", name, name,
              4711);
}

void BareEcho(const std::string& line) {
  timespec now;
  benchmark::DoNotOptimize(::clock_gettime(CLOCK_REALTIME, &now));
  benchmark::DoNotOptimize(::write(STDOUT_FILENO, line.data(), line.size()));
}

void BareLine(const std::string& folder, const std::string& file, const std::string& line) {
  BareEcho(line);
  struct stat status;
  benchmark::DoNotOptimize(::stat(folder.c_str(), &status));
  const base::UniqueFd fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0655));
  benchmark::DoNotOptimize(::write(fd.Get(), line.data(), line.size()));
}

void TraceLine(benchmark::State& state) {
  const LogFolder folder;
  const SilentOutput silent;
  Trace(TRACE_INFO, NAME);
  const std::string file = folder.File();
  const std::string dated = file.substr(0, file.rfind('/') + 1);
  const std::string line = std::string(std::filesystem::file_size(file) - 1, 'x') + "\n";
  rounds::Pair pair;
  rounds::Pair echo;
  for ([[maybe_unused]] auto _ : state) {
    pair.Round(
        [] {
          for (int i = 0; i < LINES_A_ROUND; ++i) Trace(TRACE_INFO, NAME);
        },
        [&] {
          for (int i = 0; i < LINES_A_ROUND; ++i) BareLine(dated, file, line);
        });
    echo.Round(
        [] {
          for (int i = 0; i < LINES_A_ROUND; ++i) Trace(TRACE_INFO, NAME, 0);
        },
        [&] {
          for (int i = 0; i < LINES_A_ROUND; ++i) BareEcho(line);
        });
  }
  state.counters["echo_code_ns"] = (echo.Ours() - echo.Floor()) / LINES_A_ROUND * 1e9;
  state.counters["bytes"] = static_cast<double>(line.size());
  state.counters["ours_ns"] = pair.Ours() / LINES_A_ROUND * 1e9;
  state.counters["floor_ns"] = pair.Floor() / LINES_A_ROUND * 1e9;
  state.counters["own_code_ns"] = (pair.Ours() - pair.Floor()) / LINES_A_ROUND * 1e9;
  state.counters["ratio"] = pair.Ratio();
}
BENCHMARK(TraceLine)->Iterations(121)->Unit(benchmark::kMillisecond);

void LineAboveTheLevel(benchmark::State& state) {
  DunraSTTUtils::SetLogLevel(TRACE_INFO);
  for ([[maybe_unused]] auto _ : state) Trace(TRACE_DEBUG, NAME);
}
BENCHMARK(LineAboveTheLevel);

}  // namespace

// The agent's standard output is line-buffered too.
int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
