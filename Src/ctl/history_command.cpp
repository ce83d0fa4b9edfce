// history: the starts on record.
#include <cerrno>
#include <ctime>
#include <string>

#include "base/format.h"
#include "ctl/agent_config.h"
#include "ctl/clock.h"
#include "ctl/command.h"
#include "ctl/duration.h"
#include "ctl/json_fields.h"
#include "ctl/output.h"
#include "ctl/pause.h"
#include "ctl/start_record.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr int64_t DEFAULT_SINCE = 86'400;
constexpr size_t OUTCOME_COLUMNS = 16;
constexpr Option OPTIONS[] = {{"since", 0, "DURATION", "how far back; 24h without it"}};

std::string Words(const StartRecord& record) {
  const std::string note = record.note ? ": " + Printable(*record.note) : "";
  if (record.held) return Padded("held", OUTCOME_COLUMNS) + Printable(*record.held) + note;
  std::string outcome = "port not seen";
  if (record.seconds_to_port) outcome = base::Format("port %.1f s", *record.seconds_to_port);
  std::string text = Padded(outcome, OUTCOME_COLUMNS) + Printable(record.verdict.value_or("not known"));
  if (record.command_status && *record.command_status != 0)
    text += "; the command ended with " + std::to_string(*record.command_status);
  return text + (record.evidence ? "; evidence " + Printable(*record.evidence) : "");
}

Json Object(const StartRecord& record) {
  return {{"time", record.time},
          {"held", OrNull(record.held)},
          {"note", OrNull(record.note)},
          {"verdict", OrNull(record.verdict)},
          {"evidence", OrNull(record.evidence)},
          {"command_status", OrNull(record.command_status)},
          {"seconds_to_port", OrNull(record.seconds_to_port)}};
}

// Prints one object, line by line as it is read, so that memory does not bound its length.
bool PrintObjects(const RecordFolder& folder, time_t since) {
  std::string head = JsonText(JsonObject());
  head.pop_back();
  std::string between = head + ",\"starts\":[";
  const bool all = VisitStarts(folder, since, [&](std::string_view line) {
    const auto record = ParseStartLine(line);
    if (!record) return;
    Print(between + JsonText(Object(*record)));
    between = ",\n";
  });
  Print((between.size() > 2 ? between : "") + "]}\n");
  return all;
}

bool PrintLines(const RecordFolder& folder, time_t since, int64_t duration) {
  size_t count = 0;
  const bool all = VisitStarts(folder, since, [&](std::string_view line) {
    const auto record = ParseStartLine(line);
    if (!record) return;
    ++count;
    Print(WallTime(record->at) + "  " + Words(*record) + "\n");
  });
  if (count == 0) Print("no start in " + DurationWords(duration) + "\n");
  const auto pause = ReadPause(folder, Now());
  if (pause) Print(PauseWords(*pause) + "\n");
  return all;
}

// Prints that no start was ever recorded.
int PrintNone(bool json, int64_t duration) {
  Json empty = JsonObject();
  empty["starts"] = Json::array();
  Print(json ? JsonText(empty) + "\n" : "no start in " + DurationWords(duration) + "\n");
  return ALL_WELL;
}

int RunHistory(const Call& call) {
  const std::string* text = call.Value("since");
  const auto since = text == nullptr ? std::optional(DEFAULT_SINCE) : ParseDuration(*text);
  if (!since || !call.operands.empty()) {
    Complain("usage: dunrasttctl history [--since DURATION]");
    return CANNOT_TELL;
  }
  std::string complaint;
  const auto config = FindAgentConfig(call.config, &complaint);
  const auto folder =
      config ? RecordFolder::Open(*config, RecordFolder::For::READING, &complaint) : std::nullopt;
  if (!folder && config && errno == ENOENT) return PrintNone(call.json, *since);
  if (!folder) {
    Complain(complaint);
    return CANNOT_TELL;
  }
  const time_t from = std::time(nullptr) - *since;
  if (call.json ? PrintObjects(*folder, from) : PrintLines(*folder, from, *since)) return ALL_WELL;
  Complain("a file in " + folder->Path() + "/starts cannot be read");
  return CANNOT_TELL;
}

}  // namespace

extern const Command HISTORY_COMMAND;
const Command HISTORY_COMMAND = {"history", "the starts of the engine: when, why, what came of them",
                                 "[--since DURATION]", OPTIONS, RunHistory};

}  // namespace ctl
