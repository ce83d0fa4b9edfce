// Throughput of the charset conversions beside what a system offers for the same work: iconv with a kept
// descriptor for encode_UTF8, glib's g_utf8_validate for is_UTF8. Compare medians, for example with
// --benchmark_repetitions=9 --benchmark_report_aggregates_only=true.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <iconv.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>

#include "base/unique_handles.h"
#include "charset/cp949.h"
#include "charset/is_utf8.h"

namespace {

enum Text { kAscii, kHangul, kWords };

// A text of code page 949 of about size bytes, the same in every run. Syllables are those of KS X 1001
// (lead bytes 0xB0..0xC8), as in nearly all Korean text; kWords has a space after every one to five of them.
std::string MakeText(Text kind, size_t size) {
  std::mt19937 random(949);
  std::string text;
  while (text.size() < size) {
    if (kind == kAscii) {
      text += static_cast<char>(' ' + random() % 95);
      continue;
    }
    for (auto left = kind == kWords ? 1 + random() % 5 : 1; left > 0; left--) {
      text += static_cast<char>(0xB0 + random() % 25);
      text += static_cast<char>(0xA1 + random() % 94);
    }
    if (kind == kWords) text += ' ';
  }
  return text;
}

std::string MakeUtf8(Text kind, size_t size) {
  const std::string text = MakeText(kind, size);
  char* out = nullptr;
  uint32_t out_len = 0;
  if (encode_UTF8(text.data(), static_cast<uint32_t>(text.size()), &out, &out_len) != 0) std::abort();
  const base::UniqueText owned(out);
  return {out, out_len};
}

void CountBytes(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void EncodeOurs(benchmark::State& state, Text kind) {
  const std::string text = MakeText(kind, state.range(0));
  const auto len = static_cast<uint32_t>(text.size());
  for ([[maybe_unused]] auto _ : state) {
    char* out = nullptr;
    uint32_t out_len = 0;
    benchmark::DoNotOptimize(encode_UTF8(text.c_str(), len, &out, &out_len));
    std::free(out);
  }
  CountBytes(state, text);
}

// Into one buffer that is kept: iconv is not charged for any allocation.
void EncodeIconv(benchmark::State& state, Text kind) {
  const std::string text = MakeText(kind, state.range(0));
  const auto buffer = std::make_unique<char[]>(text.size() * 2);
  iconv_t descriptor = iconv_open("UTF-8", "CP949");
  if (descriptor == iconv_t(-1)) return state.SkipWithError("no CP949 in iconv");
  for ([[maybe_unused]] auto _ : state) {
    char* in = const_cast<char*>(text.data());
    char* out = buffer.get();
    size_t in_left = text.size();
    size_t out_left = text.size() * 2;
    benchmark::DoNotOptimize(iconv(descriptor, &in, &in_left, &out, &out_left));
    benchmark::ClobberMemory();
  }
  iconv_close(descriptor);
  CountBytes(state, text);
}

void DecodeOurs(benchmark::State& state, Text kind) {
  const std::string text = MakeUtf8(kind, state.range(0));
  const auto len = static_cast<int32_t>(text.size());
  const auto buffer = std::make_unique<char[]>(text.size() + 1);
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(decode_UTF8(text.c_str(), len, buffer.get(), len + 1));
    benchmark::ClobberMemory();
  }
  CountBytes(state, text);
}

void ValidateOurs(benchmark::State& state, Text kind) {
  const std::string text = MakeUtf8(kind, state.range(0));
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(is_UTF8(text.c_str()));
  CountBytes(state, text);
}

// glib is loaded when it is there, so that the benchmarks build without it. The length is given or not:
// glib has a road of its own for each.
void ValidateGlib(benchmark::State& state, Text kind, bool with_length) {
  using Validate = int(const char*, ssize_t, const char**);
  void* const library = dlopen("libglib-2.0.so.0", RTLD_NOW);
  if (library == nullptr) return state.SkipWithError("no glib on this host");
  auto* const validate = reinterpret_cast<Validate*>(dlsym(library, "g_utf8_validate"));
  const std::string text = MakeUtf8(kind, state.range(0));
  const ssize_t length = with_length ? static_cast<ssize_t>(text.size()) : -1;
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(validate(text.c_str(), length, nullptr));
  CountBytes(state, text);
}

constexpr int64_t kLine = 256;
constexpr int64_t kMail = 65536;

BENCHMARK_CAPTURE(EncodeOurs, ascii, kAscii)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(EncodeIconv, ascii, kAscii)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(EncodeOurs, hangul, kHangul)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(EncodeIconv, hangul, kHangul)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(EncodeOurs, words, kWords)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(EncodeIconv, words, kWords)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(DecodeOurs, words, kWords)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateOurs, ascii, kAscii)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateGlib, ascii, kAscii, false)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateGlib, ascii_length, kAscii, true)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateOurs, hangul, kHangul)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateGlib, hangul, kHangul, false)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateGlib, hangul_length, kHangul, true)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateOurs, words, kWords)->Arg(kLine)->Arg(kMail);
BENCHMARK_CAPTURE(ValidateGlib, words, kWords, false)->Arg(kLine)->Arg(kMail);

}  // namespace
