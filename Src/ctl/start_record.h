// The record of starts: a line of JSON for each, held ones too, in a file per month. A line is appended when
// the start is decided and completed in place later, so it stands there whatever becomes of the rest.
#ifndef CTL_START_RECORD_H
#define CTL_START_RECORD_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ctl/record_folder.h"

namespace ctl {

struct StartRecord {
  int64_t at = 0;                       // seconds since 1970
  std::string time;                     // the same as ISO 8601
  std::optional<std::string> held;      // why nothing was run: pause, back-off, engine-is-back, another-start
  std::optional<std::string> note;      // that in words
  std::optional<std::string> verdict;   // why the engine had died
  std::optional<std::string> evidence;  // name of the evidence file
  std::optional<int64_t> command_status;
  std::optional<double> seconds_to_port;
};

// The line, its end included. Its length does not depend on the last two fields.
std::string StartLine(const StartRecord& record);
// Nothing for a line that is cut or none of these.
std::optional<StartRecord> ParseStartLine(std::string_view line);

// A line that was appended, to be completed.
struct AppendedLine {
  std::string file;  // in the folder "starts"
  off_t at = 0;
  StartRecord record;
};
// Appends a line; a line that was cut before it is ended first. Nothing with errno, and then nothing of it is
// left where that can be had.
std::optional<AppendedLine> AppendStart(const RecordFolder& folder, const StartRecord& record);
// Writes the last two fields into its place, if it still stands there: 0, or -1.
int CompleteStart(const RecordFolder& folder, const AppendedLine& line, const StartRecord& record);

// Each record from a moment on, in the order in which they were written; only files of its month and later
// are opened, and no more than 64 KiB are held. False when a file could not be read.
bool VisitStarts(const RecordFolder& folder, time_t since,
                 const std::function<void(std::string_view line)>& visit);

}  // namespace ctl

#endif
