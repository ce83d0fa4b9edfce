// status: how the agent and its engine are now.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include "base/unique_handles.h"
#include "ctl/command.h"
#include "ctl/duration.h"
#include "ctl/output.h"
#include "ctl/small_file.h"
#include "ctl/status_forms.h"
#include "ctl/status_read.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr int64_t DEFAULT_LIMIT = 10;
constexpr int64_t LONGEST_LIMIT = 600;
constexpr mode_t METRICS_MODE = 0644;
constexpr Option OPTIONS[] = {
    {"plugin", 0, nullptr, "one line with performance data, for a monitoring system"},
    {"prom", 0, "FILE", "write metrics to FILE, put in its place as a whole"},
    {"timeout", 't', "SECONDS", "answer within so many seconds; 10 without it"},
};

// Shared by the thread that reads and the one that waits; the last of them frees it.
struct Reading {
  std::string config;
  bool second_look = false;
  SharedPicture shared;
  std::mutex mutex;
  std::condition_variable ended;
  bool done = false;
  std::string failure;
};

void* ReadBody(void* argument) {
  const std::unique_ptr<std::shared_ptr<Reading>> held(static_cast<std::shared_ptr<Reading>*>(argument));
  Reading& reading = **held;
  std::string failure;
  try {
    ReadPicture(reading.config, reading.second_look, &reading.shared);
  } catch (const std::exception& error) {
    failure = error.what();
  }
  const std::lock_guard<std::mutex> lock(reading.mutex);
  reading.done = true;
  reading.failure = failure;
  reading.ended.notify_all();
  return nullptr;
}

// Reads on a thread of its own. The thread is left behind when a file system blocks it beyond the limit.
Picture ReadWithin(const Call& call, bool second_look, int64_t seconds) {
  auto reading = std::make_shared<Reading>();
  reading->config = call.config;
  reading->second_look = second_look;
  auto held = std::make_unique<std::shared_ptr<Reading>>(reading);
  pthread_t thread{};
  std::string trouble;
  if (::pthread_create(&thread, nullptr, ReadBody, held.get()) != 0) {
    trouble = "no thread could be started";
  } else {
    [[maybe_unused]] auto* given = held.release();
    ::pthread_detach(thread);
    std::unique_lock<std::mutex> lock(reading->mutex);
    const bool done =
        reading->ended.wait_for(lock, std::chrono::seconds(seconds), [&] { return reading->done; });
    trouble = done ? reading->failure : "not read within " + DurationWords(seconds);
  }
  std::string stage;
  Picture picture = reading->shared.Load(&stage);
  if (picture.time == 0) picture.time = ::time(nullptr);
  if (!trouble.empty()) picture.not_known.push_back({stage.empty() ? "the rest" : stage, trouble});
  return picture;
}

// Writes a file beside path and renames it, so that readers see the old or the new text. Returns 0, or -1
// with errno.
int PutInPlace(const std::string& path, const std::string& text) {
  std::string beside = path + ".XXXXXX";
  const base::UniqueFd file(::mkostemp(beside.data(), O_CLOEXEC));
  if (!file.Valid()) return -1;
  if (WriteAll(file.Get(), text.data(), text.size()) == 0 && ::fchmod(file.Get(), METRICS_MODE) == 0 &&
      ::rename(beside.c_str(), path.c_str()) == 0)
    return 0;
  const int error = errno;
  ::unlink(beside.c_str());
  errno = error;
  return -1;
}

int WriteMetrics(const std::string& path, const Picture& picture, const Findings& findings) {
  if (PutInPlace(path, StatusMetrics(picture, findings)) == 0) return ALL_WELL;
  Complain(Shown(path) + ": " + std::strerror(errno));
  return CANNOT_TELL;
}

std::optional<int64_t> Limit(const std::string* text) {
  if (text == nullptr) return DEFAULT_LIMIT;
  int64_t seconds = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), seconds);
  const bool whole = error == std::errc() && end == text->data() + text->size();
  return whole && seconds >= 1 && seconds <= LONGEST_LIMIT ? std::optional(seconds) : std::nullopt;
}

// Ends the process at once, without destructors: a blocked thread may still use what they destroy, and must
// not delay the end.
[[noreturn]] void Leave(int status) {
  if (std::fflush(stdout) != 0) {
    Complain("standard output takes no more");
    status = CANNOT_TELL;
  }
  ::_exit(status);
}

int RunStatus(const Call& call) {
  const std::string* prom = call.Value("prom");
  const auto limit = Limit(call.Value("timeout"));
  const int forms = (call.Has("plugin") ? 1 : 0) + (prom != nullptr ? 1 : 0) + (call.json ? 1 : 0);
  if (!limit || forms > 1 || !call.operands.empty() || (prom != nullptr && prom->empty())) {
    Complain("usage: dunrasttctl status [--plugin|--prom FILE|--json] [-t 1..600]");
    return CANNOT_TELL;
  }
  const Picture picture = ReadWithin(call, forms == 0, *limit);
  const Findings findings = Judge(picture);
  if (prom != nullptr) Leave(WriteMetrics(*prom, picture, findings));
  auto* const form = call.Has("plugin") ? StatusPlugin : call.json ? StatusJson : StatusWords;
  Print(form(picture, findings));
  Leave(WorstOf(findings));
}

}  // namespace

extern const Command STATUS_COMMAND;
const Command STATUS_COMMAND = {"status", "what the agent and its engine are like now; touches nothing",
                                "[--plugin|--prom FILE|--json] [-t SECONDS]", OPTIONS, RunStatus};

}  // namespace ctl
