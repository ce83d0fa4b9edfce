// pause and resume.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>

#include "ctl/agent_config.h"
#include "ctl/command.h"
#include "ctl/duration.h"
#include "ctl/json_fields.h"
#include "ctl/output.h"
#include "ctl/pause.h"
#include "ctl/small_file.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr Option PAUSE_OPTIONS[] = {{"reason", 0, "TEXT", "why: every status shows it"}};

// Whether the agent starts the engine through `start` of this tool.
bool StartsThroughTool(const AgentConfig& config) {
  std::istringstream words(config.shell_method);
  bool start = false;
  for (std::string word; !start && words >> word;) start = word == "start";
  return start && SameFile(config.shell_file, "/proc/self/exe");
}

// The user who runs this; with sudo, the user who called sudo.
std::string Caller() {
  const char* sudo = std::getenv("SUDO_USER");
  if (::getuid() == 0 && sudo != nullptr && *sudo != '\0') return Shown(sudo);
  const passwd* entry = ::getpwuid(::getuid());
  return entry == nullptr ? "uid " + std::to_string(::getuid()) : Shown(entry->pw_name);
}

int Refuse(const std::string& text, ExitStatus status) {
  Complain(text);
  return status;
}

int CannotWrite(const RecordFolder& folder) {
  return Refuse(folder.Path() + ": " + std::strerror(errno) + "; root and the agent's user may pause",
                CANNOT_TELL);
}

int RunPause(const Call& call) {
  const std::string* reason = call.Value("reason");
  const auto seconds = call.operands.size() == 1 ? ParseDuration(call.operands[0]) : std::nullopt;
  if (!seconds || reason == nullptr || reason->empty())
    return Refuse("usage: dunrasttctl pause DURATION --reason TEXT", CANNOT_TELL);
  if (*seconds < SHORTEST_PAUSE || *seconds > LONGEST_PAUSE)
    return Refuse("a pause takes 1m to 24h", CANNOT_TELL);
  std::string complaint;
  const auto config = FindAgentConfig(call.config, &complaint);
  if (!config) return Refuse(complaint, CANNOT_TELL);
  if (!StartsThroughTool(*config))
    return Refuse("nothing would be held: SHELL_FILE in " + Shown(config->file) +
                      " does not run dunrasttctl start, but " + Shown(config->shell_file),
                  BROKEN);
  const auto folder = RecordFolder::Open(*config, RecordFolder::For::WRITING, &complaint);
  if (!folder) return Refuse(complaint, CANNOT_TELL);
  const Moment now = Now();
  if (WritePause(*folder, now, *seconds, Caller(), Shown(*reason)) != 0) return CannotWrite(*folder);
  const auto pause = ReadPause(*folder, now);
  if (!pause) return Refuse("the pause that was written cannot be read", CANNOT_TELL);
  if (call.json) {
    Json json = JsonObject();
    json["pause"] = {{"until", IsoTime(pause->until)}, {"by", pause->by}, {"reason", pause->reason}};
    PrintJson(json);
  } else {
    Print("restarts " + PauseWords(*pause) + "\nAlarms go out as always.\n");
  }
  return ALL_WELL;
}

int RunResume(const Call& call) {
  if (!call.operands.empty()) return Refuse("resume takes no words", CANNOT_TELL);
  std::string complaint;
  const auto config = FindAgentConfig(call.config, &complaint);
  if (!config) return Refuse(complaint, CANNOT_TELL);
  const auto folder = RecordFolder::Open(*config, RecordFolder::For::READING, &complaint);
  if (!folder && errno != ENOENT) return Refuse(complaint, CANNOT_TELL);
  const bool paused = folder && ReadPause(*folder, Now()).has_value();
  if (folder && RemovePause(*folder) < 0) return CannotWrite(*folder);
  if (call.json) {
    Json json = JsonObject();
    json["resumed"] = paused;
    PrintJson(json);
  } else {
    Print(paused ? "restarts go on\n" : "nothing was paused\n");
  }
  return ALL_WELL;
}

}  // namespace

extern const Command PAUSE_COMMAND;
const Command PAUSE_COMMAND = {"pause", "hold restarts of the engine for a while; alarms go out as always",
                               "DURATION --reason TEXT", PAUSE_OPTIONS, RunPause};
extern const Command RESUME_COMMAND;
const Command RESUME_COMMAND = {"resume", "end a pause", "", {}, RunResume};

}  // namespace ctl
