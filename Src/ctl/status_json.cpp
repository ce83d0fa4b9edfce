#include "ctl/json_fields.h"
#include "ctl/output.h"
#include "ctl/status_forms.h"
#include "ctl/text.h"

namespace ctl {
namespace {

Json TimeOrNull(time_t time) {
  return time == 0 ? Json(nullptr) : Json(IsoTime(time));
}

Json FindingsJson(const Findings& findings) {
  Json all = Json::array();
  for (const StatusFinding& one : findings) {
    all.push_back({{"id", one.rule->id},
                   {"level", VerdictName(one.rule->severity)},
                   {"text", one.text},
                   {"since", TimeOrNull(one.since.value_or(0))}});
  }
  return all;
}

Json KnownOrNull(bool known, bool value) {
  return known ? Json(value) : Json(nullptr);
}

Json AgentJson(const AgentPicture& agent) {
  const ProcessSeen* process = agent.process ? &*agent.process : nullptr;
  return {{"running", KnownOrNull(agent.known, process != nullptr)},
          {"pid", process == nullptr ? Json(nullptr) : Json(process->pid)},
          {"start", TimeOrNull(process == nullptr ? 0 : process->start)},
          {"user", process == nullptr ? Json(nullptr) : Json(process->user)},
          {"stopped", process == nullptr ? Json(nullptr) : Json(process->Stopped())},
          {"config_newer", OrNull(agent.config_newer)}};
}

Json EngineJson(const EnginePicture& engine) {
  const ProcessSeen none;
  const ProcessSeen& process = engine.process ? *engine.process : none;
  const bool seen = engine.process.has_value();
  return {{"found", KnownOrNull(engine.known, seen)},
          {"pid", seen ? Json(process.pid) : Json(nullptr)},
          {"start", TimeOrNull(process.start)},
          {"zombie", KnownOrNull(seen, process.Zombie())},
          {"stopped", KnownOrNull(seen, process.Stopped())},
          {"rss", OrNull(process.rss)},
          {"threads", OrNull(process.threads)},
          {"fds", OrNull(process.fds)},
          {"fd_limit", OrNull(process.fd_limit)}};
}

Json PortJson(const Picture& seen) {
  const auto& queue = seen.port.queue;
  const bool listening = queue && queue->listening;
  return {{"number", seen.config ? Json(seen.config->port) : Json(nullptr)},
          {"listening", queue ? Json(listening) : Json(nullptr)},
          {"waiting", listening ? Json(queue->waiting) : Json(nullptr)},
          {"backlog", listening ? OrNull(queue->room) : Json(nullptr)},
          {"overflows", OrNull(seen.port.overflows)}};
}

Json FigureJson(const std::optional<Figure>& figure) {
  if (!figure) return nullptr;
  return {{"value", figure->value}, {"limit", figure->limit}, {"time", TimeOrNull(figure->time)}};
}

Json FiguresJson(const Picture& seen) {
  const MainLogPicture log = seen.log.value_or(MainLogPicture{});
  return {{"cpu", FigureJson(log.cpu)},
          {"memory", FigureJson(log.memory)},
          {"channels", FigureJson(log.channels)}};
}

Json HangJson(const Picture& seen) {
  if (!seen.hang) return nullptr;
  return {{"last", seen.hang->last},
          {"time", TimeOrNull(seen.hang->time)},
          {"since", TimeOrNull(seen.hang->since)},
          {"in_a_row", seen.hang->in_a_row}};
}

Json RestartsJson(const Picture& seen) {
  if (!seen.restarts) return nullptr;
  return {{"hour", seen.restarts->hour},
          {"day", seen.restarts->day},
          {"last", TimeOrNull(seen.restarts->last)},
          {"verdict", seen.restarts->verdict.empty() ? Json(nullptr) : Json(seen.restarts->verdict)},
          {"evidence", seen.restarts->evidence.empty() ? Json(nullptr) : Json(seen.restarts->evidence)}};
}

Json UndeliveredJson(const Picture& seen) {
  Json all = Json::array();
  const auto add = [&](const Undelivered& one) {
    all.push_back({{"channel", one.channel},
                   {"destination", one.destination.empty() ? Json(nullptr) : Json(Shown(one.destination))},
                   {"reason", one.reason},
                   {"since", TimeOrNull(one.since)}});
  };
  for (const Undelivered& one : seen.servers) add(one);
  if (!seen.log) return seen.servers.empty() ? Json(nullptr) : all;
  for (const Undelivered& one : seen.log->undelivered) add(one);
  return all;
}

}  // namespace

std::string StatusJson(const Picture& seen, const Findings& findings) {
  const ExitStatus worst = WorstOf(findings);
  Json json = JsonObject();
  json["time"] = IsoTime(seen.time);
  json["host"] = Shown(seen.host);
  json["config"] = seen.config ? Json(Shown(seen.config->file)) : Json(nullptr);
  json["verdict"] = VerdictName(worst);
  json["code"] = static_cast<int>(worst);
  json["findings"] = FindingsJson(findings);
  json["agent"] = AgentJson(seen.agent);
  json["engine"] = EngineJson(seen.engine);
  json["port"] = PortJson(seen);
  json["figures"] = FiguresJson(seen);
  json["channels_watched"] = seen.log ? OrNull(seen.log->channels_watched) : Json(nullptr);
  json["hang"] = HangJson(seen);
  json["restarts"] = RestartsJson(seen);
  json["undelivered"] = UndeliveredJson(seen);
  json["pause"] = nullptr;
  if (seen.pause)
    json["pause"] = {
        {"until", IsoTime(seen.pause->until)}, {"by", seen.pause->by}, {"reason", seen.pause->reason}};
  return JsonText(json) + "\n";
}

}  // namespace ctl
