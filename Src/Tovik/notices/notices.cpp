#include "Tovik/notices/notices.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <optional>
#include <string>

namespace notices {
namespace {

std::atomic<bool> on{false};
std::mutex mutex;
Repeats repeats;  // under the mutex

int64_t NowSeconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

std::optional<int64_t> Due(const Row& row, const std::string& sameness) {
  const int64_t now = NowSeconds();
  const std::lock_guard<std::mutex> lock(mutex);
  return repeats.Due(static_cast<int>(row.notice), sameness, now);
}

}  // namespace

bool On() {
  return on.load(std::memory_order_relaxed);
}

void LookForJournal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  on = stream != nullptr && ::fstat(STDERR_FILENO, &status) == 0 &&
       NamesFile(stream, status.st_dev, status.st_ino);
}

void TellRow(const Row& row, std::initializer_list<std::string_view> texts) try {
  const Composed composed = Compose(row.sentence, {texts.begin(), texts.size()});
  const std::optional<int64_t> held = Due(row, composed.sameness);
  if (!held) return;
  const std::string line = Line(row.priority, composed.sentence, *held);
  std::fwrite(line.data(), 1, line.size(), stderr);
} catch (const std::bad_alloc&) {
  // Nothing is left to tell it with.
}

}  // namespace notices
