// What a large mail costs: attaching a file, stuffing and folding its texts, all without a network.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "base/unique_handles.h"
#include "smtp/smtp_base64.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"

namespace {

// A file of this many megabytes (10^6), removed afterwards.
class BenchFile {
 public:
  explicit BenchFile(int64_t megabytes) {
    std::string block(1'000'000, '\0');
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 2654435761U >> 13U);
    const base::UniqueFd fd(::mkstemp(path_.data()));
    std::ofstream out(path_, std::ios::binary);
    for (int64_t i = 0; i < megabytes; ++i) out << block;
  }
  ~BenchFile() { ::unlink(path_.c_str()); }
  BenchFile(const BenchFile&) = delete;
  BenchFile& operator=(const BenchFile&) = delete;
  const char* Path() const { return path_.c_str(); }

 private:
  std::string path_ = "/tmp/smtp_bench.XXXXXX";
};

void AttachPath(benchmark::State& state) {
  const BenchFile file(state.range(0));
  while (state.KeepRunning()) {
    smtp_session session;
    benchmark::DoNotOptimize(smtp_attachment_add_path(&session, "a.bin", file.Path()));
  }
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  state.counters["peakMB"] = static_cast<double>(usage.ru_maxrss) / 1000.0;
  state.SetBytesProcessed(state.iterations() * state.range(0) * 1'000'000);
}
BENCHMARK(AttachPath)->Arg(50)->Arg(200)->Unit(benchmark::kMillisecond);

void StuffDots(benchmark::State& state) {
  std::string body;
  while (body.size() < 819200) body += "<td>cell</td>\n.dotted line\n";
  while (state.KeepRunning()) {
    const base::UniqueText text(smtp_str_replace("\n.", "\n..", body.c_str()));
    benchmark::DoNotOptimize(text.get());
  }
}
BENCHMARK(StuffDots)->Unit(benchmark::kMicrosecond);

void FoldRecipients(benchmark::State& state) {
  std::string line = "To: ";
  while (line.size() < 819200) line += "\"Some One\" <some.one@example.com>, ";
  while (state.KeepRunning()) {
    const base::UniqueText text(smtp_fold_whitespace(line.c_str(), 78));
    benchmark::DoNotOptimize(text.get());
  }
}
BENCHMARK(FoldRecipients)->Unit(benchmark::kMicrosecond);

}  // namespace
