#include "ctl/start_record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <vector>

#include "base/format.h"
#include "ctl/clock.h"
#include "ctl/json_fields.h"
#include "ctl/output.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr const char* FOLDER = "starts";
constexpr const char* ENDING = ".jsonl";
constexpr std::string_view HEAD = "{\"at\":";
constexpr size_t CHUNK = 65536;
constexpr time_t DAY = 86'400;  // more than any time zone's offset, as months are local

std::string MonthFile(time_t wall) {
  return LocalTime(wall, "%Y-%m") + ENDING;
}

bool EndsInALine(int fd, off_t size) {
  char last = '\n';
  return size == 0 || ::pread(fd, &last, 1, size - 1) != 1 || last == '\n';
}

// True when the line begins with a moment at or after since. It reads no further: of a million lines nearly
// all are older.
bool IsSince(std::string_view line, time_t since) {
  if (!line.starts_with(HEAD)) return false;
  int64_t at = 0;
  const char* begin = line.data() + HEAD.size();
  return std::from_chars(begin, line.data() + line.size(), at).ec == std::errc() && at >= since;
}

// Visits each line. Lines longer than the buffer are not ours and are skipped.
bool VisitLines(int fd, time_t since, const std::function<void(std::string_view)>& visit) {
  std::vector<char> buffer(CHUNK);
  size_t kept = 0;
  bool skipping = false;
  while (true) {
    const ssize_t got = ::read(fd, buffer.data() + kept, buffer.size() - kept);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return got == 0;
    const std::string_view text(buffer.data(), kept + static_cast<size_t>(got));
    size_t at = 0;
    for (size_t end = 0; (end = text.find('\n', at)) != std::string_view::npos; at = end + 1) {
      const std::string_view line = text.substr(at, end - at);
      if (!skipping && IsSince(line, since)) visit(line);
      skipping = false;
    }
    kept = text.size() - at;
    if (kept == buffer.size()) {
      skipping = true;
      kept = 0;
    }
    std::memmove(buffer.data(), text.data() + at, kept);
  }
}

}  // namespace

std::string StartLine(const StartRecord& record) {
  Json json;
  json["at"] = record.at;
  json["time"] = record.time;
  json["held"] = OrNull(record.held);
  json["note"] = OrNull(record.note);
  json["verdict"] = OrNull(record.verdict);
  json["evidence"] = OrNull(record.evidence);
  std::string line = JsonText(json);
  line.pop_back();
  const std::string status = record.command_status ? std::to_string(*record.command_status) : "null";
  const std::string seconds = record.seconds_to_port ? base::Format("%.1f", *record.seconds_to_port) : "null";
  line += base::Format(",\"command_status\":%-5.5s,\"seconds_to_port\":%-5.5s}\n", status.c_str(),
                       seconds.c_str());
  return line;
}

std::optional<StartRecord> ParseStartLine(std::string_view line) {
  const Json json = ParseObject(line);
  const auto at = NumberField(json, "at");
  const auto time = TextField(json, "time");
  if (!at || !time) return std::nullopt;
  return StartRecord{*at,
                     *time,
                     TextField(json, "held"),
                     TextField(json, "note"),
                     TextField(json, "verdict"),
                     TextField(json, "evidence"),
                     NumberField(json, "command_status"),
                     FigureField(json, "seconds_to_port")};
}

std::optional<AppendedLine> AppendStart(const RecordFolder& folder, const StartRecord& record) {
  const auto starts = folder.Sub(FOLDER, RecordFolder::For::WRITING);
  if (!starts) return std::nullopt;
  AppendedLine appended{MonthFile(record.at), 0, record};
  const base::UniqueFd file = starts->OpenFile(appended.file, O_RDWR | O_CREAT | O_APPEND);
  struct stat status {};
  if (!file.Valid() || ::fstat(file.Get(), &status) != 0) return std::nullopt;
  const bool whole = EndsInALine(file.Get(), status.st_size);
  const std::string text = (whole ? "" : "\n") + StartLine(record);
  const ssize_t written = ::write(file.Get(), text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) {
    appended.at = ::lseek(file.Get(), 0, SEEK_CUR) - static_cast<off_t>(StartLine(record).size());
    return appended;
  }
  const int error = written < 0 ? errno : ENOSPC;
  if (written > 0) {
    [[maybe_unused]] const int cut = ::ftruncate(file.Get(), status.st_size);
  }
  errno = error;
  return std::nullopt;
}

int CompleteStart(const RecordFolder& folder, const AppendedLine& line, const StartRecord& record) {
  const auto starts = folder.Sub(FOLDER, RecordFolder::For::READING);
  if (!starts) return -1;
  // Not opened for appending: bytes would then go to the end, whatever offset is given.
  const base::UniqueFd file = starts->OpenFile(line.file, O_RDWR);
  const std::string before = StartLine(line.record);
  const std::string after = StartLine(record);
  std::string there(before.size(), '\0');
  if (!file.Valid() || after.size() != before.size()) return -1;
  const ssize_t got = ::pread(file.Get(), there.data(), there.size(), line.at);
  if (got != static_cast<ssize_t>(before.size()) || there != before) return -1;
  return ::pwrite(file.Get(), after.data(), after.size(), line.at) == static_cast<ssize_t>(after.size()) ? 0
                                                                                                         : -1;
}

bool VisitStarts(const RecordFolder& folder, time_t since,
                 const std::function<void(std::string_view)>& visit) {
  const auto starts = folder.Sub(FOLDER, RecordFolder::For::READING);
  if (!starts) return errno == ENOENT;
  const std::string first = MonthFile(since > DAY ? since - DAY : 0);
  bool all = true;
  for (const std::string& name : starts->Names(ENDING)) {
    if (name < first) continue;
    const base::UniqueFd file = starts->OpenFile(name, O_RDONLY);
    all = file.Valid() && VisitLines(file.Get(), since, visit) && all;
  }
  return all;
}

}  // namespace ctl
