// dunrasttctl check: what is wrong with the configuration.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/format.h"
#include "ctl/agent_config.h"
#include "ctl/check_look.h"
#include "ctl/check_reach.h"
#include "ctl/check_rules.h"
#include "ctl/command.h"
#include "ctl/output.h"
#include "ctl/run_as.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr size_t LEVEL_COLUMNS = 9;
constexpr size_t LINE_COLUMNS = 9;
constexpr size_t KEY_COLUMNS = 25;
constexpr const char* SECRET = "***";
// Keys whose value is never printed.
constexpr std::string_view SECRETS[] = {"SMTP_AUTHPASSWORD", "FILE_PASSWORD", "WEBHOOK_SERVER_URL"};

struct Counts {
  int64_t errors;
  int64_t warnings;
};

Counts CountOf(const std::vector<CheckFinding>& findings) {
  const auto count = [&](Level level) {
    return std::count_if(findings.begin(), findings.end(),
                         [&](const CheckFinding& finding) { return finding.level == level; });
  };
  return {count(Level::ERROR), count(Level::WARNING)};
}

int StatusOf(const Counts& counts, bool strict) {
  if (counts.errors > 0) return BROKEN;
  return strict && counts.warnings > 0 ? TO_LOOK_AT : ALL_WELL;
}

struct KeyRow {
  std::string key;
  std::string value;
  size_t line;
};

std::string Safe(std::string_view key, const std::string& value) {
  const bool secret = std::find(std::begin(SECRETS), std::end(SECRETS), key) != std::end(SECRETS) ||
                      value.find('@') < value.rfind("://") + 1 ||
                      (key.ends_with("_URL") && value.find('@') != std::string::npos);
  return secret && !value.empty() ? SECRET : Shown(value);
}

std::vector<KeyRow> KeyRows(const Facts& facts) {
  std::vector<KeyRow> rows;
  for (const auto& [key, setting] : facts.settings)
    rows.push_back({key, Safe(key, setting.text), setting.line});
  for (const ServerLine& server : facts.servers)
    rows.push_back({Shown(server.key), Shown(server.value), server.line});
  std::stable_sort(rows.begin(), rows.end(), [](const KeyRow& one, const KeyRow& other) {
    return std::pair(one.line == 0, one.line) < std::pair(other.line == 0, other.line);
  });
  return rows;
}

std::string LineText(size_t line) {
  return line == 0 ? std::string() : "line " + std::to_string(line);
}

std::string FindingText(const Facts& facts, const CheckFinding& finding) {
  const Colour colour = finding.level == Level::ERROR     ? Colour::RED
                        : finding.level == Level::WARNING ? Colour::YELLOW
                                                          : Colour::GREY;
  std::string text = Paint(colour, Padded(LevelName(finding.level), LEVEL_COLUMNS));
  if (finding.file != facts.file) text += Shown(finding.file) + " ";
  const std::string line = LineText(finding.line);
  if (!line.empty()) text += finding.file == facts.file ? Padded(line, LINE_COLUMNS) : line + ": ";
  return text + finding.text + "\n";
}

std::string Summary(const Facts& facts, const Counts& counts) {
  const auto words = [](int64_t count, const char* what) {
    return (count == 0 ? "no" : std::to_string(count)) + " " + what + (count == 1 ? "" : "s");
  };
  return words(counts.errors, "error") + ", " + words(counts.warnings, "warning") + " in " +
         Shown(facts.file) + "\n";
}

void PrintText(const Facts& facts, const std::vector<CheckFinding>& findings, bool keys) {
  if (keys) {
    for (const KeyRow& row : KeyRows(facts))
      Print(Padded(row.key, KEY_COLUMNS) + Padded(LineText(row.line), LINE_COLUMNS) + " " + row.value + "\n");
  }
  for (const CheckFinding& finding : findings) Print(FindingText(facts, finding));
  Print(Summary(facts, CountOf(findings)));
}

nlohmann::ordered_json LineJson(size_t line) {
  return line == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(line);
}

void PrintAsJson(const Facts& facts, const std::vector<CheckFinding>& findings, bool keys) {
  const Counts counts = CountOf(findings);
  nlohmann::ordered_json json = JsonObject();
  json["config"] = Shown(facts.file);
  json["user"] = facts.user;
  json["errors"] = counts.errors;
  json["warnings"] = counts.warnings;
  json["findings"] = nlohmann::ordered_json::array();
  for (const CheckFinding& finding : findings) {
    const nlohmann::ordered_json key =
        finding.key.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(finding.key);
    json["findings"].push_back({{"id", finding.id},
                                {"level", LevelName(finding.level)},
                                {"file", Shown(finding.file)},
                                {"line", LineJson(finding.line)},
                                {"key", key},
                                {"text", finding.text}});
  }
  if (keys) {
    json["keys"] = nlohmann::ordered_json::array();
    for (const KeyRow& row : KeyRows(facts))
      json["keys"].push_back({{"key", row.key}, {"value", row.value}, {"line", LineJson(row.line)}});
  }
  PrintJson(json);
}

// The user that the agent runs as: the one given, else that of its process, else that of its unit, else the
// caller.
std::optional<RunAs> UserOf(const Call& call, const Facts& facts) {
  if (const std::string* given = call.Value("user")) return FindUser(*given);
  struct stat status {};
  if (facts.agent.running && ::stat(base::Format("/proc/%d", facts.agent.pid).c_str(), &status) == 0)
    return FindUser(std::to_string(status.st_uid));
  const std::string unit = UserOfInstalledUnit(facts.file);
  if (unit.empty()) return CurrentUser();
  return FindUser(unit);
}

int Check(const Call& call, Facts facts) {
  LookAtFiles(&facts);
  std::vector<CheckFinding> findings = Judge(facts);
  if (call.Has("reach")) {
    const std::vector<CheckFinding> unreached = Reach(facts);
    findings.insert(findings.end(), unreached.begin(), unreached.end());
  }
  const auto print = call.json ? PrintAsJson : PrintText;
  print(facts, findings, call.Has("print"));
  return StatusOf(CountOf(findings), call.Has("strict"));
}

int Run(const Call& call) {
  std::string complaint;
  const std::string file = ChooseConfigFile(call.config, ::getpid(), &complaint);
  std::optional<Facts> facts;
  if (!call.operands.empty()) {
    complaint = "check takes no word " + Shown(call.operands[0]) + "; the file is told with -f";
  } else if (!file.empty()) {
    facts = ReadFacts(file, &complaint);
  }
  if (!facts) {
    Complain(complaint);
    return CANNOT_TELL;
  }
  const std::optional<RunAs> user = UserOf(call, *facts);
  if (!user) {
    Complain("the user to look as is in no file of this host; say it in figures with --user");
    return CANNOT_TELL;
  }
  facts->user = user->name;
  facts->root = user->user == 0;
  return DoAs(*user, &facts->as_user, [&] { return Check(call, *facts); });
}

constexpr Option OPTIONS[] = {
    {"strict", 0, nullptr, "leave with 1 for warnings too"},
    {"reach", 0, nullptr, "look up and connect to every destination; nothing is sent"},
    {"print", 0, nullptr, "print every key, the value the agent works with, and its line"},
    {"user", 0, "NAME", "look as this user; else as the one that the agent runs as"},
};

}  // namespace

extern const Command CHECK_COMMAND{"check", "what is wrong with the configuration, and what will come of it",
                                   "[--strict] [--reach] [--print] [--user NAME]", OPTIONS, Run};

}  // namespace ctl
