#include "ctl/backoff.h"

#include <algorithm>

#include "ctl/duration.h"

namespace ctl {
namespace {

constexpr int64_t MS = 1000;
constexpr int64_t MAX_DOUBLINGS = 40;

int64_t Delay(const StartRow& row, const BackoffRule& rule) {
  int64_t delay = std::min(rule.first, rule.last);
  for (int64_t i = 1; i < std::min(row.starts, MAX_DOUBLINGS) && delay < rule.last; ++i) delay *= 2;
  return std::min(delay, rule.last);
}

}  // namespace

std::optional<BackoffRule> ParseBackoff(std::string_view text) {
  const size_t dots = text.find("..");
  if (dots == std::string_view::npos) return std::nullopt;
  const auto first = ParseDuration(text.substr(0, dots));
  const auto last = ParseDuration(text.substr(dots + 2));
  if (!first || !last || *first > *last) return std::nullopt;
  return BackoffRule{.first = *first, .last = *last};
}

StartRow SeenDead(StartRow row, const BackoffRule& rule, const std::string& boot_id, int64_t now_ms) {
  const bool sound = row.boot_id == boot_id && !boot_id.empty() && row.last_ms >= 0 &&
                     row.last_ms <= now_ms && row.dead_ms <= now_ms && row.starts > 0;
  if (!sound) return {};
  if (row.dead_ms < row.last_ms) row.dead_ms = now_ms;
  return row.dead_ms - row.last_ms >= rule.healthy * MS ? StartRow{} : row;
}

int64_t SecondsToWait(const StartRow& row, const BackoffRule& rule, int64_t now_ms) {
  if (row.starts == 0) return 0;
  const int64_t left = row.last_ms + Delay(row, rule) * MS - now_ms;
  return left <= 0 ? 0 : (left + MS - 1) / MS;
}

std::string WaitWords(const StartRow& row, int64_t seconds, int64_t now_ms) {
  return "next try in " + DurationWords(seconds) + ": " + std::to_string(row.starts) +
         (row.starts == 1 ? " start in " : " starts in ") + DurationWords((now_ms - row.first_ms) / MS);
}

StartRow Started(StartRow row, const std::string& boot_id, int64_t now_ms) {
  if (row.starts == 0) row.first_ms = now_ms;
  return {boot_id, now_ms, -1, row.first_ms, row.starts + 1};
}

}  // namespace ctl
