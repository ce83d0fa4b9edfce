// dunrasttctl render: every alarm, exactly as it would leave.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

#include "Tovik/findings/findings.h"
#include "base/unique_handles.h"
#include "ctl/agent_config.h"
#include "ctl/command.h"
#include "ctl/near_name.h"
#include "ctl/output.h"
#include "ctl/render_alarm.h"
#include "ctl/render_page.h"
#include "ctl/small_file.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr size_t MESSAGE_LIMIT = 81919;            // what the agent takes of an engine's error lines
constexpr const char* MESSAGE_KIND = "error-log";  // what --message replaces without --kind

// Creates the file with mode 0600, as mails may hold the engine's configuration. Returns false, after a
// complaint, on failure.
bool WriteFile(const std::string& path, std::string_view bytes) {
  const base::UniqueFd file(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (file.Valid() && WriteAll(file.Get(), bytes.data(), bytes.size()) == 0) return true;
  Complain(Shown(path) + ": " + std::strerror(errno));
  return false;
}

struct Output {
  const char* ending;
  std::string RenderedAlarm::*bytes;
};
constexpr Output OUTPUTS[] = {{".eml", &RenderedAlarm::mail},
                              {".html", &RenderedAlarm::html},
                              {".card.json", &RenderedAlarm::card},
                              {".frame", &RenderedAlarm::frame}};

bool WriteAlarms(const std::string& folder, const std::vector<RenderedAlarm>& alarms,
                 const std::string& where) {
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    Complain(Shown(folder) + ": " + std::strerror(errno));
    return false;
  }
  for (const RenderedAlarm& alarm : alarms) {
    for (const Output& output : OUTPUTS) {
      const std::string& bytes = alarm.*output.bytes;
      if (!bytes.empty() && !WriteFile(folder + "/" + alarm.name + output.ending, bytes)) return false;
    }
  }
  return WriteFile(folder + "/index.html", RenderedPage(alarms, where));
}

bool AnyWrong(const RenderedAlarm& alarm) {
  return std::any_of(alarm.remarks.begin(), alarm.remarks.end(),
                     [](const Remark& remark) { return remark.wrong; });
}

void Tell(const std::vector<RenderedAlarm>& alarms, const std::string& folder) {
  for (const RenderedAlarm& alarm : alarms) {
    for (const Remark& remark : alarm.remarks)
      Print(Paint(remark.wrong ? Colour::RED : Colour::GREY, Padded(remark.wrong ? "wrong" : "note", 9)) +
            Padded(alarm.name, 18) + remark.text + "\n");
  }
  Print(std::to_string(alarms.size()) + (alarms.size() == 1 ? " alarm in " : " alarms in ") + Shown(folder) +
        "/index.html\n");
}

void TellJson(const std::vector<RenderedAlarm>& alarms, const std::string& folder) {
  nlohmann::ordered_json json = JsonObject();
  json["page"] = Shown(folder) + "/index.html";
  json["alarms"] = nlohmann::ordered_json::array();
  for (const RenderedAlarm& alarm : alarms) {
    nlohmann::ordered_json remarks = nlohmann::ordered_json::array();
    for (const Remark& remark : alarm.remarks)
      remarks.push_back({{"wrong", remark.wrong}, {"text", remark.text}});
    json["alarms"].push_back({{"kind", alarm.name}, {"remarks", remarks}});
  }
  PrintJson(json);
}

// The message that replaces this finding's own; null: none.
const std::string* MessageFor(const FindingRow& row, const Call& call,
                              const std::optional<std::string>& message) {
  const bool meant = call.Has("kind") || row.name == std::string_view(MESSAGE_KIND);
  return message && meant ? &*message : nullptr;
}

// What is wrong with the command line; empty when nothing is.
std::string Complaint(const Call& call) {
  if (!call.operands.empty()) return "render takes no word " + Shown(call.operands[0]);
  if (call.Value("out") == nullptr || call.Value("out")->empty()) return "render needs --out DIR";
  const std::string* kind = call.Value("kind");
  std::vector<std::string_view> names;
  names.reserve(FINDINGS.size());
  for (const FindingRow& row : FINDINGS) names.emplace_back(row.name);
  if (kind != nullptr && std::find(names.begin(), names.end(), *kind) == names.end())
    return "no kind " + Shown(*kind) + NearNameHint(*kind, names);
  return {};
}

int Render(const Call& call, const AgentConfig& config, const std::optional<std::string>& message) {
  PrepareRendering();
  const std::time_t now = std::time(nullptr);
  std::vector<RenderedAlarm> alarms;
  for (const FindingRow& row : FINDINGS) {
    if (call.Has("kind") && *call.Value("kind") != row.name) continue;
    alarms.push_back(RenderAlarm(row, now, MessageFor(row, call, message)));
  }
  const std::string& folder = *call.Value("out");
  if (!WriteAlarms(folder, alarms, "From " + Shown(config.file) + ", as they would leave now."))
    return CANNOT_TELL;
  const auto tell = call.json ? TellJson : Tell;
  tell(alarms, folder);
  return std::any_of(alarms.begin(), alarms.end(), AnyWrong) ? TO_LOOK_AT : ALL_WELL;
}

int Run(const Call& call) {
  std::string complaint = Complaint(call);
  std::optional<std::string> message;
  if (const std::string* file = call.Value("message"); file != nullptr && complaint.empty()) {
    message = ReadSmallFile(*file, MESSAGE_LIMIT);
    if (!message) complaint = Shown(*file) + ": " + std::strerror(errno);
  }
  const auto config = complaint.empty() ? FindAgentConfig(call.config, &complaint) : std::nullopt;
  if (config) return Render(call, *config, message);
  Complain(complaint);
  return CANNOT_TELL;
}

constexpr Option OPTIONS[] = {
    {"kind", 0, "KIND", "this alarm alone"},
    {"message", 0, "FILE", "take its text for the error lines, or for the message of KIND"},
    {"out", 0, "DIR", "where to write to; made when it is missing"},
};

}  // namespace

extern const Command RENDER_COMMAND{"render", "every alarm as it would leave, in files and on a page",
                                    "[--kind KIND] [--message FILE] --out DIR", OPTIONS, Run};

}  // namespace ctl
