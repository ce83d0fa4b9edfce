#include "Tovik/notices/notices.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "base/format.h"
#include "base/steady_time.h"
#include "charset/utf8_repair.h"
#include "charset/utf8_text.h"

namespace notices {
namespace {

constexpr size_t NOTICE_TEXT_SHOWN = 300;
constexpr size_t NOTICE_TEXT_READ = 4 * NOTICE_TEXT_SHOWN;  // of a text whose length is not ours to choose

std::atomic<bool> journalOn{false};
std::mutex repeatsMutex;
Repeats repeats;  // under its mutex

std::optional<int64_t> Due(const NoticeRow& row, const std::string& sameness) {
  const int64_t now = base::SteadySeconds();
  const std::lock_guard<std::mutex> lock(repeatsMutex);
  return repeats.Due(static_cast<int>(row.notice), sameness, now);
}

}  // namespace

bool On() {
  return journalOn.load(std::memory_order_relaxed);
}

void LookForJournal() {
  const char* const journal_stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  journalOn = journal_stream != nullptr && ::fstat(STDERR_FILENO, &status) == 0 &&
              JournalStreamNames(journal_stream, status.st_dev, status.st_ino);
}

void TellNoticeRow(const NoticeRow& row, std::initializer_list<std::string_view> texts) try {
  const Composed notice = Compose(row.sentence, {texts.begin(), texts.size()});
  const std::optional<int64_t> held = Due(row, notice.sameness);
  if (!held) return;
  const std::string notice_line = NoticeLine(row.priority, notice.sentence, *held);
  std::fwrite(notice_line.data(), 1, notice_line.size(), stderr);
} catch (const std::bad_alloc&) {
  // Nothing is left to tell it with.
}

std::string Shown(std::string_view text) {
  return charset::Printable(charset::Repaired(text.substr(0, NOTICE_TEXT_READ)), NOTICE_TEXT_SHOWN,
                            charset::Escapes::BYTES);
}

Composed Compose(std::string_view sentence, std::span<const std::string_view> texts) {
  Composed notice;
  for (const std::string_view text : texts) {
    const size_t at = std::min(sentence.find('{'), sentence.size());
    const bool passing = sentence.substr(at).starts_with(PASSING);
    const std::string notice_text = Shown(text);
    notice.sentence.append(sentence.substr(0, at)).append(notice_text);
    if (!passing) notice.sameness.append(notice_text).push_back('\n');
    sentence.remove_prefix(std::min(at + (passing ? PASSING : TEXT).size(), sentence.size()));
  }
  notice.sentence.append(sentence);
  return notice;
}

std::optional<int64_t> Repeats::Due(int kind_id, const std::string& sameness, int64_t now) {
  Kind& kind = kinds_[kind_id];
  const auto same_notice = std::find_if(kind.told.begin(), kind.told.end(),
                                        [&](const Told& told) { return told.sameness == sameness; });
  if (same_notice != kind.told.end()) {
    if (now - same_notice->when < REPEAT_PERIOD) {
      ++same_notice->held;
      return std::nullopt;
    }
    same_notice->when = now;
    return std::exchange(same_notice->held, 0);
  }
  if (kind.told.size() >= MOST_OF_A_KIND) {
    const auto oldest_notice = std::min_element(kind.told.begin(), kind.told.end(),
                                                [](const Told& a, const Told& b) { return a.when < b.when; });
    if (now - oldest_notice->when < REPEAT_PERIOD) {
      ++kind.crowded;
      return std::nullopt;
    }
    kind.told.erase(oldest_notice);
  }
  kind.told.push_back({sameness, now, 0});
  return std::exchange(kind.crowded, 0);
}

std::string NoticeLine(int priority, const std::string& sentence, int64_t held) {
  std::string notice_line = base::Format("<%d>", priority) + sentence;
  if (held > 0)
    notice_line += base::Format(" (%lld more like this were not written)", static_cast<long long>(held));
  return notice_line + '\n';
}

bool JournalStreamNames(std::string_view journal_stream, dev_t device, ino_t inode) {
  return journal_stream == base::Format("%llu:%llu", static_cast<unsigned long long>(device),
                                        static_cast<unsigned long long>(inode));
}

}  // namespace notices
