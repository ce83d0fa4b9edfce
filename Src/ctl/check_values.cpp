// Rules on names, numbers and times, on what hides the engine, and on the file as a whole.
#include <sys/stat.h>

#include <algorithm>

#include "base/format.h"
#include "base/number.h"
#include "ctl/check_rules.h"

namespace ctl {
namespace {

constexpr size_t LONGEST_NAME = 15;  // of a process, as the kernel keeps it
constexpr std::string_view AGENT_NAME = "DunraSTT_Admin";
constexpr std::string_view TOOL_NAME = "dunrasttctl";
constexpr int64_t NEVER = 101;
constexpr int64_t FEW_DAYS = 30;
constexpr std::time_t CLOCK_SLACK = 2;  // seconds by which the start of a process may be off
constexpr int64_t LAST_PORT = 65535;

bool Restarts(const Facts& facts) {
  return facts.Number("RESTART_CHECK") != 0;
}
bool LooksForEngine(const Facts& facts) {
  return Restarts(facts) || facts.Number("HANG_SAVE") != 0;
}
size_t LineOf(const Facts& facts, std::string_view key) {
  return facts.Of(key).line;
}

void EngineName(const Facts& facts, Hits* hits) {
  const std::string& name = facts.Text("PROC_NAME");
  if (!LooksForEngine(facts)) return;
  if (name.empty()) {
    hits->Add(0, "PROC_NAME", {"PROC_NAME is missing"});
  } else if (name.size() > LONGEST_NAME) {
    hits->Add(LineOf(facts, "PROC_NAME"), "PROC_NAME",
              {"PROC_NAME " + name + " is longer than the 15 bytes that the kernel keeps of a name"});
  }
}

void NameWithoutPort(const Facts& facts, Hits* hits) {
  const std::string& name = facts.Text("PROC_NAME");
  const bool usable = !name.empty() && name.size() <= LONGEST_NAME && !facts.host.hides_processes;
  if (!LooksForEngine(facts) || !usable || !facts.host.port_listens) return;
  for (const NamedProcess& process : facts.host.named)
    if (process.name == name) return;
  hits->Add(LineOf(facts, "PROC_NAME"), "PROC_NAME", {name, facts.Text("ASR_PORT")});
}

void EqualNames(const Facts& facts, Hits* hits) {
  const std::string& name = facts.Text("PROC_NAME");
  if (!name.empty() && name == facts.Text("WATCHDOG_NAME"))
    hits->Add(LineOf(facts, "PROC_NAME"), "PROC_NAME", {});
}

void ToolsName(const Facts& facts, Hits* hits) {
  for (const char* key : {"PROC_NAME", "WATCHDOG_NAME"}) {
    if (facts.Text(key) == TOOL_NAME) hits->Add(LineOf(facts, key), key, {key, TOOL_NAME});
  }
}

size_t Bearers(const Facts& facts, bool agents) {
  return static_cast<size_t>(
      std::count_if(facts.host.named.begin(), facts.host.named.end(), [&](const NamedProcess& process) {
        return process.name == facts.Text("WATCHDOG_NAME") && (agents ? process.agent : true);
      }));
}

// An agent started through a link has the link's name.
void AgentName(const Facts& facts, Hits* hits) {
  const std::string& name = facts.Text("WATCHDOG_NAME");
  if (name == AGENT_NAME || Bearers(facts, true) > 0) return;
  hits->Add(LineOf(facts, "WATCHDOG_NAME"), "WATCHDOG_NAME", {name, AGENT_NAME});
}

void NameTaken(const Facts& facts, Hits* hits) {
  const size_t own = facts.agent.running ? 1 : 0;
  const size_t bearers = Bearers(facts, false);
  if (bearers <= own) return;
  hits->Add(LineOf(facts, "WATCHDOG_NAME"), "WATCHDOG_NAME",
            {std::to_string(bearers), bearers == 1 ? " bears" : "es bear", facts.Text("WATCHDOG_NAME")});
}

void NotWatched(const Facts& facts, Hits* hits) {
  if (!Restarts(facts)) hits->Add(LineOf(facts, "RESTART_CHECK"), "RESTART_CHECK", {});
}

void NoPause(const Facts& facts, Hits* hits) {
  const Setting& pause = facts.Of("RESTART_CHECK_SEC");
  if (Restarts(facts) && pause.number <= 0)
    hits->Add(pause.line, "RESTART_CHECK_SEC", {std::to_string(pause.number)});
}

// True when memory is checked by the agent's old figure only.
bool OldMemoryFigure(const Facts& facts) {
  return facts.Number("MEM_OVER_PERCENT") == 0;
}

void ThresholdsThatAlwaysFire(const Facts& facts, Hits* hits) {
  for (const char* key : {"CPU_OVER_VALUE", "MEM_OVER_VALUE", "CH_OVER_VALUE"}) {
    const Setting& limit = facts.Of(key);
    if (Restarts(facts) && limit.number <= 0) hits->Add(limit.line, key, {key, std::to_string(limit.number)});
  }
}

void ThresholdsBeyondReach(const Facts& facts, Hits* hits) {
  for (const char* key : {"CPU_OVER_VALUE", "MEM_OVER_VALUE", "CH_OVER_VALUE"}) {
    const Setting& limit = facts.Of(key);
    if (Restarts(facts) && limit.number > NEVER)
      hits->Add(limit.line, key, {key, std::to_string(limit.number)});
  }
}

void MemoryThatNeverFires(const Facts& facts, Hits* hits) {
  const Setting& limit = facts.Of("MEM_OVER_VALUE");
  if (Restarts(facts) && OldMemoryFigure(facts) && limit.number > 0 && limit.number < NEVER)
    hits->Add(limit.line, "MEM_OVER_VALUE", {std::to_string(limit.number)});
}

void ResultTime(const Facts& facts, Hits* hits) {
  const Setting& time = facts.Of("RESULT_TIME");
  if (facts.Number("RESULT_CHECK") != 0 && time.text.find(':') == std::string::npos)
    hits->Add(time.line, "RESULT_TIME", {time.text});
}

void ResultMinute(const Facts& facts, Hits* hits) {
  const Setting& time = facts.Of("RESULT_TIME");
  const size_t colon = time.text.find(':');
  if (facts.Number("RESULT_CHECK") == 0 || colon == std::string::npos) return;
  const int64_t hour = base::LeadingNumber(time.text.substr(0, colon));
  const int64_t minute = base::LeadingNumber(time.text.substr(colon + 1));
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59) hits->Add(time.line, "RESULT_TIME", {time.text});
}

void Silent(const Facts& facts, Hits* hits) {
  const Setting& level = facts.Of("LOG_LEVEL");
  if (level.number <= 0) hits->Add(level.line, "LOG_LEVEL", {std::to_string(level.number)});
}

void Unsaved(const Facts& facts, Hits* hits) {
  const Setting& save = facts.Of("WATCH_SAVE");
  if (save.number == 0 && facts.Number("LOG_LEVEL") > 0) hits->Add(save.line, "WATCH_SAVE", {});
}

void HangWithoutProbe(const Facts& facts, Hits* hits) {
  const Setting& save = facts.Of("HANG_SAVE");
  if (save.number != 0 && save.number != 1) hits->Add(save.line, "HANG_SAVE", {std::to_string(save.number)});
}

void NoPort(const Facts& facts, Hits* hits) {
  const Setting& port = facts.Of("ASR_PORT");
  if (port.number <= 0 || port.number > LAST_PORT)
    hits->Add(port.line, "ASR_PORT", {std::to_string(port.number)});
}

void PortOfOthers(const Facts& facts, Hits* hits) {
  const Setting& port = facts.Of("ASR_PORT");
  if (port.number >= facts.host.first_port && port.number <= facts.host.last_port)
    hits->Add(port.line, "ASR_PORT",
              {std::to_string(port.number), std::to_string(facts.host.first_port),
               std::to_string(facts.host.last_port)});
}

// The PID file can be judged only while the engine runs.
void EnginePid(const Facts& facts, Hits* hits) {
  if (facts.Number("HANG_SAVE") == 0) return;
  pid_t engine = 0;
  for (const NamedProcess& process : facts.host.named) {
    if (process.name != facts.Text("PROC_NAME")) continue;
    if (process.pid == facts.host.engine_pid_file) return;
    if (engine == 0) engine = process.pid;
  }
  if (engine == 0) return;
  hits->Add(LineOf(facts, "SVC_PID_FILE"), "SVC_PID_FILE",
            {facts.Text("SVC_PID_FILE"), std::to_string(facts.host.engine_pid_file), facts.Text("PROC_NAME"),
             std::to_string(engine)});
}

void HiddenProcesses(const Facts& facts, Hits* hits) {
  if (facts.host.hides_processes && !facts.root) hits->Add(0, "", {facts.user});
}

void Certificate(const Facts& facts, Hits* hits) {
  if (facts.certificate.unusable)
    hits->Add(LineOf(facts, "CERT_FILE"), "CERT_FILE", {facts.Text("CERT_FILE"), facts.Text("KEY_FILE")});
}

void Authority(const Facts& facts, Hits* hits) {
  if (facts.certificate.no_authority) hits->Add(LineOf(facts, "CA_FILE"), "CA_FILE", {facts.Text("CA_FILE")});
}

void CertificateDays(const Facts& facts, Hits* hits) {
  const auto& days = facts.certificate.days_left;
  if (!days || *days > FEW_DAYS) return;
  hits->Add(LineOf(facts, "CERT_FILE"), "CERT_FILE",
            {*days < 0 ? "has expired" : base::Format("expires in %d days", static_cast<int>(*days))});
}

void ReadableSecrets(const Facts& facts, Hits* hits) {
  if ((facts.mode & S_IROTH) == 0) return;
  const bool logs_in = facts.Mails() && facts.Number("SMTP_AUTH") > 1;
  const bool pass_phrase = facts.Number("SSL_CHECK") != 0;
  for (const auto& [key, used] : {std::pair("SMTP_AUTHPASSWORD", logs_in), {"FILE_PASSWORD", pass_phrase}}) {
    if (used && !facts.Text(key).empty()) hits->Add(LineOf(facts, key), key, {key});
  }
}

std::string Clock(std::time_t when) {
  std::tm local{};
  localtime_r(&when, &local);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%b %e %H:%M", &local)};
}

void ChangedSince(const Facts& facts, Hits* hits) {
  if (!facts.agent.running || facts.changed <= facts.agent.started + CLOCK_SLACK) return;
  hits->Add(0, "", {Clock(facts.changed), Clock(facts.agent.started)});
}

void NotAsUser(const Facts& facts, Hits* hits) {
  if (!facts.as_user) hits->Add(0, "", {facts.user});
}

constexpr Rule RULES[] = {
    {"engine-name", Level::ERROR, "{}; the engine is taken for dead and started again and again", EngineName},
    {"name-missing", Level::WARNING,
     "no process is named {}, but port {} listens: the name is wrong, and a living engine is started again "
     "and "
     "again; or another program has the port",
     NameWithoutPort},
    {"names-equal", Level::ERROR,
     "PROC_NAME and WATCHDOG_NAME are the same: the agent does not start beside the engine, and takes itself "
     "for it",
     EqualNames},
    {"tool-name", Level::ERROR, "{} {} is the name of this tool, whose own process would count", ToolsName},
    {"agent-name", Level::ERROR,
     "WATCHDOG_NAME {}: the agent's process is called {}; it does not start (\"Already Running\")",
     AgentName},
    {"agent-name-taken", Level::ERROR,
     "{} process{} the agent's name {} already; an agent started now ends with \"Already Running\"",
     NameTaken},
    {"not-watched", Level::WARNING,
     "RESTART_CHECK 0: a dead engine is not started again, and no threshold is looked at", NotWatched},
    {"no-pause", Level::ERROR,
     "RESTART_CHECK_SEC {}: checks, starts and alarms follow each other without a pause", NoPause},
    {"threshold-always", Level::WARNING, "{} {}: an alarm in every check that finds the engine",
     ThresholdsThatAlwaysFire},
    {"threshold-beyond", Level::NOTE, "{} {} is never reached; 101 is how never is written",
     ThresholdsBeyondReach},
    {"memory-never", Level::WARNING,
     "MEM_OVER_VALUE {} is never reached: the figure is the engine's MB over the host's kB, 0 for every "
     "engine; "
     "101 is how never is written",
     MemoryThatNeverFires},
    {"result-time", Level::ERROR, "RESULT_TIME \"{}\" holds no colon: the agent does not start", ResultTime},
    {"result-minute", Level::ERROR, "RESULT_TIME {} never comes: no daily report is ever sent", ResultMinute},
    {"log-level", Level::WARNING, "LOG_LEVEL {}: nothing is logged but the hang log", Silent},
    {"log-unsaved", Level::WARNING, "WATCH_SAVE 0: the log goes to no file", Unsaved},
    {"hang-save", Level::WARNING, "HANG_SAVE {}: the hang log calls every engine dead without trying",
     HangWithoutProbe},
    {"no-port", Level::ERROR,
     "ASR_PORT {} never answers: channels are not watched, the hang log calls every engine dead", NoPort},
    {"port-of-others", Level::WARNING,
     "ASR_PORT {} is among the ports {} to {} of outgoing connections: a probe can reach itself, and the "
     "engine "
     "find its port taken",
     PortOfOthers},
    {"engine-pid", Level::WARNING,
     "SVC_PID_FILE {} says {}, but {} is process {}: the hang log calls it dead", EnginePid},
    {"hidden-processes", Level::ERROR,
     "/proc is mounted with hidepid: user {} sees no process of others, and takes an engine of theirs for "
     "dead",
     HiddenProcesses},
    {"certificate", Level::WARNING,
     "CERT_FILE {} and KEY_FILE {} are no certificate with its key: the agent shows none to the engine",
     Certificate},
    {"authority", Level::ERROR,
     "CA_FILE {} holds no authority: no certificate of the engine passes, and its channels are not watched",
     Authority},
    {"certificate-days", Level::WARNING, "CERT_FILE {}: an engine that asks for it then refuses the agent",
     CertificateDays},
    {"secret-readable", Level::WARNING, "{}: everybody on this host may read the file that it stands in",
     ReadableSecrets},
    {"file-newer", Level::NOTE,
     "the file was changed {}, the agent runs since {}: it still works with the old one", ChangedSince},
    {"not-as-user", Level::NOTE, "files were looked at as the caller: only root can take on user {}",
     NotAsUser},
};

}  // namespace

const std::span<const Rule> VALUE_RULES = RULES;

}  // namespace ctl
