// The record of starts: one line of JSON for each start, also for one that was held, in a file per month. A
// line is appended when the start is decided and completed in place later, so it is there even if the rest
// fails.
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
  std::optional<std::string> note;      // the reason in words
  std::optional<std::string> verdict;   // why the engine had died
  std::optional<std::string> evidence;  // name of the evidence file
  std::optional<int64_t> command_status;
  std::optional<double> seconds_to_port;
};

// The line with its line end. Its length does not depend on the last two fields.
std::string StartLine(const StartRecord& record);
// Returns nothing for a line that is cut or is no such record.
std::optional<StartRecord> ParseStartLine(std::string_view line);

// The place of a line that was appended, to complete it later.
struct AppendedLine {
  std::string file;  // in the folder "starts"
  off_t at = 0;
  StartRecord record;
};
// Appends a line. When the file ends in a cut line, ends that line first. Returns nothing, with errno, on
// failure; a half-written line is then removed if possible.
std::optional<AppendedLine> AppendStart(const RecordFolder& folder, const StartRecord& record);
// Writes the last two fields into the line, if it still stands at its place. Returns 0, or -1.
int CompleteStart(const RecordFolder& folder, const AppendedLine& line, const StartRecord& record);

// Calls visit for each line from the moment since on, in the order of writing. Opens only the files of that
// month and later, and holds no more than 64 KiB. Returns false when a file could not be read.
bool VisitStarts(const RecordFolder& folder, time_t since,
                 const std::function<void(std::string_view line)>& visit);

}  // namespace ctl

#endif
