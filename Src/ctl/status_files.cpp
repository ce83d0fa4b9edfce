// The logs and the record of starts, as `status` reads them.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ctl/agent_files.h"
#include "ctl/record_folder.h"
#include "ctl/small_file.h"
#include "ctl/start_record.h"
#include "ctl/status_logs.h"
#include "ctl/status_read.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr time_t HOUR = time_t{60} * 60;
constexpr time_t DAY = 24 * HOUR;

// Reads the end of today's log and, when that is shorter than half the tail, first the end of yesterday's.
// Returns false, with errno, when a log exists but cannot be read.
template <typename Add>
bool TailOfTwoDays(const AgentConfig& config, DayFile (*file)(const AgentConfig&, time_t), time_t now,
                   Add add) {
  const auto today = ReadDayFile(file(config, now), LOG_TAIL);
  const int error = errno;
  if (!today && error != ENOENT && error != ENOTDIR) return false;
  if (!today || today->size() < LOG_TAIL / 2) {
    const auto before = ReadDayFile(file(config, now - DAY), LOG_TAIL);
    if (before) add(*before);
  }
  if (today) add(*today);
  errno = error;
  return true;
}

// Returns true when the folder of a log can be entered; otherwise notes that in the picture.
bool FolderOpen(const std::string& prefix, const char* what, Picture* picture) {
  const std::string folder = prefix.substr(0, prefix.rfind('/') + 1);
  struct stat status {};
  if (::stat(folder.empty() ? "." : folder.c_str(), &status) != 0) {
    picture->not_known.push_back({std::string(what) + " " + Shown(folder), std::strerror(errno)});
    return false;
  }
  return true;
}

void CannotRead(const char* what, const std::string& prefix, Picture* picture) {
  picture->not_known.push_back({std::string(what) + " below " + Shown(prefix), std::strerror(errno)});
}

void SeeMainLog(Picture* picture) {
  const AgentConfig& config = *picture->config;
  if (!FolderOpen(config.watch_path, "the log folder", picture)) return;
  MainLogPicture log;
  const auto add = [&](const std::string& text) { AddMainLog(text, config.process, &log); };
  if (!TailOfTwoDays(config, MainLog, picture->time, add))
    return CannotRead("the main log", config.watch_path, picture);
  picture->log = std::move(log);
  for (size_t i = 0; i < config.checks.servers.size(); ++i) {
    const auto text = ReadDayFile(ServerLog(config, static_cast<long>(i), picture->time), LOG_TAIL / 4);
    const auto failure = text ? ServerFailure(*text, config.checks.servers[i]) : std::nullopt;
    if (failure) picture->servers.push_back(*failure);
  }
}

void SeeHangLog(Picture* picture) {
  const AgentConfig& config = *picture->config;
  if (!FolderOpen(config.hang_path, "the hang log's folder", picture)) return;
  const auto add = [&](const std::string& text) { AddHangLog(text, &picture->hang); };
  if (!TailOfTwoDays(config, HangLog, picture->time, add))
    CannotRead("the hang log", config.hang_path, picture);
}

// Adds the starts from the ends of the files of the newest two months.
void AddStarts(const RecordFolder& folder, time_t now, RestartsPicture* restarts) {
  const auto starts = folder.Sub("starts", RecordFolder::For::READING);
  if (!starts) return;
  std::vector<std::string> names = starts->Names(".jsonl");
  if (names.size() > 2) names.erase(names.begin(), names.end() - 2);
  for (const std::string& name : names) {
    const base::UniqueFd file = starts->OpenFile(name, O_RDONLY);
    const auto text = file.Valid() ? ReadTail(file.Get(), LOG_TAIL) : std::nullopt;
    for (size_t at = 0; text && at < text->size();) {
      const size_t end = std::min(text->find('\n', at), text->size());
      const auto record = ParseStartLine(std::string_view(*text).substr(at, end - at));
      at = end + 1;
      if (!record || record->held || record->at <= now - DAY || record->at > now) continue;
      restarts->day += 1;
      restarts->hour += record->at > now - HOUR ? 1 : 0;
      restarts->last = record->at;
      restarts->verdict = Printable(record->verdict.value_or("not known"));
      restarts->evidence = Printable(record->evidence.value_or(""));
    }
  }
  restarts->whole = true;
}

// Without a record, counts the restarts in the agent's log, as far back as that was read.
void CountTraced(const MainLogPicture& log, time_t now, RestartsPicture* restarts) {
  for (const time_t time : log.restarts) {
    if (time <= now - DAY || time > now) continue;
    restarts->day += 1;
    restarts->hour += time > now - HOUR ? 1 : 0;
    restarts->last = time;
  }
  restarts->whole = log.first != 0 && log.first <= now - DAY;
}

}  // namespace

void SeeLogs(Picture* picture) {
  if (picture->config->checks.traces) SeeMainLog(picture);
  if (picture->config->checks.hang) SeeHangLog(picture);
}

void SeeRecord(const Moment& now, Picture* picture) {
  std::string complaint;
  const auto folder = RecordFolder::Open(*picture->config, RecordFolder::For::READING, &complaint);
  RestartsPicture restarts;
  if (folder) {
    picture->pause = ReadPause(*folder, now);
    AddStarts(*folder, now.wall, &restarts);
  } else if (errno != ENOENT) {
    picture->record_hidden = complaint;
  }
  if (!restarts.whole && picture->log) CountTraced(*picture->log, now.wall, &restarts);
  if (restarts.whole || picture->log) picture->restarts = restarts;
}

}  // namespace ctl
