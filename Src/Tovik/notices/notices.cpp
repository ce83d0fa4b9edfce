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

std::atomic<bool> noticesOn{false};
std::mutex noticeRepeatsMutex;
Repeats noticeRepeats;  // under its mutex

std::optional<int64_t> Due(const NoticeRow& row, const std::string& sameness) {
  const int64_t now = base::SteadySeconds();
  const std::lock_guard<std::mutex> lock(noticeRepeatsMutex);
  return noticeRepeats.Due(static_cast<int>(row.notice), sameness, now);
}

}  // namespace

bool On() {
  return noticesOn.load(std::memory_order_relaxed);
}

void LookForJournal() {
  const char* const notice_stream = std::getenv("JOURNAL_STREAM");
  struct stat notice_file {};
  noticesOn = notice_stream != nullptr && ::fstat(STDERR_FILENO, &notice_file) == 0 &&
              JournalStreamNames(notice_stream, notice_file.st_dev, notice_file.st_ino);
}

void TellNoticeRow(const NoticeRow& row, std::initializer_list<std::string_view> texts) try {
  const ComposedNotice notice = Compose(row.sentence, {texts.begin(), texts.size()});
  const std::optional<int64_t> held = Due(row, notice.sameness);
  if (!held) return;
  const std::string notice_line = NoticeLine(row.priority, notice.sentence, *held);
  std::fwrite(notice_line.data(), 1, notice_line.size(), stderr);
} catch (const std::bad_alloc&) {
  // Nothing is left to tell it with.
}

std::string Shown(std::string_view notice_text) {
  return charset::Printable(charset::Repaired(notice_text.substr(0, NOTICE_TEXT_READ)), NOTICE_TEXT_SHOWN,
                            charset::Escapes::BYTES);
}

ComposedNotice Compose(std::string_view sentence, std::span<const std::string_view> notice_texts) {
  ComposedNotice notice;
  for (const std::string_view notice_text : notice_texts) {
    const size_t notice_place = std::min(sentence.find('{'), sentence.size());
    const bool passing_text = sentence.substr(notice_place).starts_with(PASSING_NOTICE_TEXT);
    const std::string shown_text = Shown(notice_text);
    notice.sentence.append(sentence.substr(0, notice_place)).append(shown_text);
    if (!passing_text) notice.sameness.append(shown_text).push_back('\n');
    sentence.remove_prefix(
        std::min(notice_place + (passing_text ? PASSING_NOTICE_TEXT : NOTICE_TEXT).size(), sentence.size()));
  }
  notice.sentence.append(sentence);
  return notice;
}

std::optional<int64_t> Repeats::Due(int kind_id, const std::string& sameness, int64_t now) {
  NoticeKind& notice_kind = notice_kinds_[kind_id];
  const auto same_notice = std::find_if(notice_kind.told.begin(), notice_kind.told.end(),
                                        [&](const ToldNotice& told) { return told.sameness == sameness; });
  if (same_notice != notice_kind.told.end()) {
    if (now - same_notice->when < NOTICE_REPEAT_PERIOD) {
      ++same_notice->held;
      return std::nullopt;
    }
    same_notice->when = now;
    return std::exchange(same_notice->held, 0);
  }
  if (notice_kind.told.size() >= MOST_NOTICES_OF_A_KIND) {
    const auto oldest_notice =
        std::min_element(notice_kind.told.begin(), notice_kind.told.end(),
                         [](const ToldNotice& a, const ToldNotice& b) { return a.when < b.when; });
    if (now - oldest_notice->when < NOTICE_REPEAT_PERIOD) {
      ++notice_kind.crowded;
      return std::nullopt;
    }
    notice_kind.told.erase(oldest_notice);
  }
  notice_kind.told.push_back({sameness, now, 0});
  return std::exchange(notice_kind.crowded, 0);
}

std::string NoticeLine(int priority, const std::string& sentence, int64_t held_notices) {
  std::string notice_line = base::Format("<%d>", priority) + sentence;
  if (held_notices > 0)
    notice_line +=
        base::Format(" (%lld more like this were not written)", static_cast<long long>(held_notices));
  return notice_line + '\n';
}

bool JournalStreamNames(std::string_view notice_stream, dev_t device, ino_t inode) {
  return notice_stream == base::Format("%llu:%llu", static_cast<unsigned long long>(device),
                                       static_cast<unsigned long long>(inode));
}

}  // namespace notices
