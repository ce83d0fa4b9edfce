#include "Tovik/notices/notices.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "base/format.h"
#include "charset/utf8_text.h"

namespace notices {
namespace {

constexpr size_t TEXT_SHOWN = 300;
constexpr size_t TEXT_READ = 4 * TEXT_SHOWN;  // of a text whose length is not ours to choose

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

std::string Shown(std::string_view text) {
  return charset::Printable(charset::Repaired(text.substr(0, TEXT_READ)), TEXT_SHOWN,
                            charset::Escapes::BYTES);
}

Composed Compose(std::string_view sentence, std::span<const std::string_view> texts) {
  Composed composed;
  for (const std::string_view text : texts) {
    const size_t at = std::min(sentence.find('{'), sentence.size());
    const bool passing = sentence.substr(at).starts_with(PASSING);
    const std::string shown = Shown(text);
    composed.sentence.append(sentence.substr(0, at)).append(shown);
    if (!passing) composed.sameness.append(shown).push_back('\n');
    sentence.remove_prefix(std::min(at + (passing ? PASSING : TEXT).size(), sentence.size()));
  }
  composed.sentence.append(sentence);
  return composed;
}

std::optional<int64_t> Repeats::Due(int kind, const std::string& sameness, int64_t now) {
  Kind& row = kinds_[kind];
  const auto same = std::find_if(row.told.begin(), row.told.end(),
                                 [&](const Told& told) { return told.sameness == sameness; });
  if (same != row.told.end()) {
    if (now - same->when < PERIOD) {
      ++same->held;
      return std::nullopt;
    }
    same->when = now;
    return std::exchange(same->held, 0);
  }
  if (row.told.size() >= MOST) {
    const auto oldest = std::min_element(row.told.begin(), row.told.end(),
                                         [](const Told& a, const Told& b) { return a.when < b.when; });
    if (now - oldest->when < PERIOD) {
      ++row.crowded;
      return std::nullopt;
    }
    row.told.erase(oldest);
  }
  row.told.push_back({sameness, now, 0});
  return std::exchange(row.crowded, 0);
}

std::string Line(int priority, const std::string& sentence, int64_t held) {
  std::string line = base::Format("<%d>", priority) + sentence;
  if (held > 0) line += base::Format(" (%lld more like this were not written)", static_cast<long long>(held));
  return line + '\n';
}

bool NamesFile(std::string_view journal_stream, dev_t device, ino_t inode) {
  return journal_stream == base::Format("%llu:%llu", static_cast<unsigned long long>(device),
                                        static_cast<unsigned long long>(inode));
}

}  // namespace notices
