// The result check on a day of 1,000,000 jobs, about 200 MB: counting the lines, reading the records and
// averaging them, as one run of the check does. peak_MB is the process's peak memory so far; pages of the
// file itself are not in it.
//
// To compare: mawk -F, '{r+=$13;f+=$16;x+=$19;p+=$22}END{print NR,x/NR,f/NR,r/NR,p/NR}' FILE, with the file
// that is left at the path of DUNRA_RESULT_FILE when that is set.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Tovik/checks/average_table.h"
#include "Tovik/checks/result_file.h"
#include "base/regular_file.h"
#include "base/unique_handles.h"

namespace {

constexpr int64_t LINES = 1'000'000;

// The file of results, made once and removed at the end unless it was asked for.
class ResultFile {
 public:
  ResultFile() {
    const char* kept = std::getenv("DUNRA_RESULT_FILE");
    kept_ = kept != nullptr;
    path_ = kept_ ? kept : (std::filesystem::temp_directory_path() / "dunra-result-bench.csv").string();
    if (kept_ && std::filesystem::exists(path_)) return;
    const base::UniqueFile file(std::fopen(path_.c_str(), "we"));
    if (file == nullptr) std::abort();
    for (unsigned i = 0; i < LINES; ++i) WriteJob(file.get(), i);
  }
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;
  ~ResultFile() {
    if (!kept_) std::remove(path_.c_str());
  }
  const char* Path() const { return path_.c_str(); }

 private:
  static void WriteJob(std::FILE* file, unsigned i) {
    const unsigned mixed = i * 2654435761U;
    const unsigned audio = 3000 + mixed % 600000;
    const unsigned recognition = audio / (8 + mixed % 30);
    std::fprintf(file,
                 "%u,20240131,call-%08u-%04x,S,/data/recordings/2024/01/31/%08u-mono.wav,PCM,ko-KR-8k-call,1,"
                 "agent%05u,OK,10.20.30.%u,7,%u,0,0,%u.%02u,8000,16,%.4f,0,0,%u,20240131,%06u\n",
                 i, i, mixed & 0xFFFF, i, mixed % 100000, mixed % 255, recognition, audio, mixed % 100,
                 static_cast<double>(recognition) / audio, recognition + mixed % 500, i % 240000);
  }
  std::string path_;
  bool kept_ = false;
};

void ResultReport(benchmark::State& state) {
  static const ResultFile file;
  for (auto _ : state) {
    const int64_t count = base::CountFileNewlines(file.Path());
    RESULT_LIST* records = GetResultReadData(file.Path(), count);
    if (count != LINES || records == nullptr) std::abort();
    benchmark::DoNotOptimize(AverageOf(records, count));
    FreeResultData(records);
  }
  struct rusage usage {};
  ::getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_MB"] = static_cast<double>(usage.ru_maxrss) / 1024;
}
BENCHMARK(ResultReport)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
