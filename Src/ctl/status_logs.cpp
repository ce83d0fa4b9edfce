#include "ctl/status_logs.h"

#include <array>
#include <charconv>
#include <cstdio>

#include "ctl/text.h"

namespace ctl {
namespace {

constexpr std::string_view HANG_TAG = "[HANG]";
constexpr std::string_view STAMP = "YYYY/MM/DD hh:mm:ss";
constexpr std::string_view MESSAGE_MARK = "] : [";
constexpr std::string_view ALARM_MARK = " Alarm Occured - ";
constexpr std::string_view HEALTH_MARK = " ] health check : ";

template <typename Visit>
void VisitLines(std::string_view text, Visit visit) {
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    if (end == text.npos) return;  // still being written
    if (const auto line = ParseTraceLine(text.substr(at, end - at))) visit(*line);
    at = end + 1;
  }
}

// "WORD [ 12 ] OTHER [ 90 ]": both numbers.
bool TwoNumbers(std::string_view message, int64_t* first, int64_t* second) {
  for (int64_t* number : {first, second}) {
    const size_t open = message.find("[ ");
    if (open == message.npos) return false;
    message.remove_prefix(open + 2);
    const auto [end, error] = std::from_chars(message.data(), message.data() + message.size(), *number);
    if (error != std::errc()) return false;
    message.remove_prefix(static_cast<size_t>(end - message.data()));
  }
  return true;
}

struct FigureRow {
  std::string_view begins;
  std::optional<Figure> MainLogPicture::*figure;
};
constexpr FigureRow FIGURES[] = {
    {"System CPU [", &MainLogPicture::cpu},
    {"System Memory [", &MainLogPicture::memory},
    {"System Channel [", &MainLogPicture::channels},
};
constexpr int64_t NO_CPU_FIGURE = -999;

bool TakeFigure(const TraceLine& line, MainLogPicture* picture) {
  for (const FigureRow& row : FIGURES) {
    if (!line.message.starts_with(row.begins)) continue;
    Figure figure;
    if (TwoNumbers(line.message, &figure.value, &figure.limit) && figure.value != NO_CPU_FIGURE) {
      figure.time = StampTime(line.stamp);
      picture->*row.figure = figure;
    }
    return true;
  }
  return false;
}

// How an alarm to people is traced: a line when it was lost, and after it, in either case, the line that it
// was sent.
struct ChannelRow {
  const char* channel;
  std::string_view lost;
  std::string_view sent;
  bool Told::*told;
};
constexpr std::array<ChannelRow, 2> CHANNELS = {{
    {"mail", "Mail lost: ", "Mail Send [", &Told::mail},
    {"chat", "WebHook lost: ", "WebHook Send [", &Told::chat},
}};

class Deliveries {
 public:
  explicit Deliveries(MainLogPicture* picture) : picture_(picture) {}

  void Take(const TraceLine& line) {
    for (size_t i = 0; i < CHANNELS.size(); ++i) {
      if (line.message.starts_with(CHANNELS[i].lost)) reason_[i] = Reason(line.message);
      if (line.message.starts_with(CHANNELS[i].sent)) Sent(i, line);
    }
    if (line.message == "CUrl Error" && reason_[1].empty()) reason_[1] = "no connection could be set up";
  }

 private:
  static std::string Reason(std::string_view message) {
    const size_t colon = message.find(": ", message.find(", kind "));
    return Shown(message.substr(colon == message.npos ? 0 : colon + 2));
  }

  void Sent(size_t channel, const TraceLine& line) {
    const time_t time = StampTime(line.stamp);
    auto& all = picture_->undelivered;
    const auto same = [&](const Undelivered& one) { return one.channel == CHANNELS[channel].channel; };
    if (reason_[channel].empty()) {
      std::erase_if(all, same);
      Tell(channel, line, time);
      return;
    }
    auto found = all.begin();
    while (found != all.end() && !same(*found)) ++found;
    const time_t since = found == all.end() ? time : found->since;
    if (found != all.end()) all.erase(found);
    all.push_back({CHANNELS[channel].channel, "", std::move(reason_[channel]), since});
    reason_[channel].clear();
  }

  void Tell(size_t channel, const TraceLine& line, time_t time) {
    const size_t at = line.message.rfind(ALARM_MARK);
    const std::string what =
        at == line.message.npos ? "" : Shown(line.message.substr(at + ALARM_MARK.size()));
    auto& told = picture_->told;
    // The post follows the mail of the same alarm.
    const bool joins = told && CHANNELS[channel].told == &Told::chat && told->what == what && !told->chat &&
                       time - told->time <= JOIN_SECONDS;
    if (!joins) told = Told{time, what, false, false};
    (*told).*CHANNELS[channel].told = true;
  }

  static constexpr time_t JOIN_SECONDS = 120;
  MainLogPicture* picture_;
  std::array<std::string, CHANNELS.size()> reason_;
};

// Parts of the lines that tell a failed report. The first such line counts.
struct FailureRow {
  std::string_view part;
  const char* words;
};
constexpr FailureRow FAILURES[] = {
    {"CONNECT SOCK FAIL", "cannot be reached"},
    {"CREATE SOCK FAIL", "was not called: no socket"},
    {"Channel Open Filed", "gave no reply"},
    {"Header Pack Recv Failed", "closed without a reply, or gave none in time"},
    {"Data Pack Recv Failed", "did not take it"},
    {"Send Failed", "took no data"},
    {"malloc fail", "was not told: no memory"},
    {"svc ch open fail", "could not be opened"},
    {"svc Alam Send fail", "gave no reply"},
    {"svc ch data send fail", "gave no reply"},
    {"svc ch resource send fail", "gave no reply"},
};

const char* FailureWords(const TraceLine& line) {
  for (const FailureRow& row : FAILURES) {
    if (line.message.find(row.part) != line.message.npos) return row.words;
  }
  return line.tag == "ERROR" ? "failed" : nullptr;
}

}  // namespace

std::optional<TraceLine> ParseTraceLine(std::string_view line) {
  TraceLine found;
  if (line.starts_with(HANG_TAG)) line.remove_prefix(HANG_TAG.size());
  if (line.size() < STAMP.size() + 1 || line[0] != '[' || !line.ends_with(']')) return std::nullopt;
  found.stamp = line.substr(1, STAMP.size());
  const size_t close = line.find(']');
  if (line.substr(close).starts_with("][")) {
    const size_t end = line.find(']', close + 1);
    if (end != line.npos) found.tag = line.substr(close + 2, end - close - 2);
  }
  const size_t mark = line.find(MESSAGE_MARK);
  if (mark == line.npos) return std::nullopt;
  const size_t begin = mark + MESSAGE_MARK.size();
  found.message = line.substr(begin, line.size() - begin - 1);
  return found;
}

time_t StampTime(std::string_view stamp) {
  std::tm local{};
  const std::string text(stamp);
  if (std::sscanf(text.c_str(), "%4d/%2d/%2d %2d:%2d:%2d", &local.tm_year, &local.tm_mon, &local.tm_mday,
                  &local.tm_hour, &local.tm_min, &local.tm_sec) != 6)
    return 0;
  local.tm_year -= 1900;
  local.tm_mon -= 1;
  local.tm_isdst = -1;
  return std::mktime(&local);
}

void AddMainLog(std::string_view text, const std::string& process, MainLogPicture* picture) {
  const std::string start = ToUtf8(process) + " process start.";
  Deliveries deliveries(picture);
  std::string_view last;
  VisitLines(text, [&](const TraceLine& line) {
    if (picture->first == 0) picture->first = StampTime(line.stamp);
    last = line.stamp;
    if (TakeFigure(line, picture)) return;
    if (line.message.starts_with("g_shm_open_flag = ")) {
      picture->channels_watched = !line.message.ends_with("= 0");
    } else if (line.message == start) {
      picture->restarts.push_back(StampTime(line.stamp));
    } else {
      deliveries.Take(line);
    }
  });
  if (!last.empty()) picture->last = StampTime(last);
}

void AddHangLog(std::string_view text, std::optional<HangPicture>* picture) {
  VisitLines(text, [&](const TraceLine& line) {
    const size_t at = line.message.rfind(HEALTH_MARK);
    if (at == line.message.npos) return;
    const std::string verdict = Shown(line.message.substr(at + HEALTH_MARK.size()));
    const time_t time = StampTime(line.stamp);
    HangPicture next{verdict, time, time, 0};
    const bool same = *picture && (*picture)->Deaded() == next.Deaded();
    if (same) next.since = (*picture)->since, next.in_a_row = (*picture)->in_a_row;
    *picture = next;
    ++(*picture)->in_a_row;
  });
}

std::optional<Undelivered> ServerFailure(std::string_view text, const std::string& destination) {
  std::optional<Undelivered> failure;
  VisitLines(text, [&](const TraceLine& line) {
    const char* words = FailureWords(line);
    if (words == nullptr) {
      failure.reset();
    } else if (!failure) {
      failure = Undelivered{"server", destination, words, StampTime(line.stamp)};
    }
  });
  return failure;
}

}  // namespace ctl
