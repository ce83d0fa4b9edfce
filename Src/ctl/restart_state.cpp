#include "ctl/restart_state.h"

#include "ctl/json_fields.h"
#include "ctl/output.h"
#include "ctl/small_file.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr const char* FILE_NAME = "state";
constexpr size_t TEXT_LIMIT = 16384;

Json EngineJson(const EngineSeen& engine) {
  Json json = {{"pid", engine.pid},
               {"start", engine.start},
               {"unit", ToUtf8(engine.unit)},
               {"folder", ToUtf8(engine.folder)},
               {"wall", engine.wall}};
  if (!engine.queue_known) return json;
  json["listening"] = engine.queue.listening;
  json["waiting"] = engine.queue.waiting;
  json["room"] = OrNull(engine.queue.room);
  return json;
}

EngineSeen ParseEngine(const Json& json) {
  EngineSeen engine;
  engine.pid = static_cast<pid_t>(NumberField(json, "pid").value_or(0));
  engine.start = static_cast<uint64_t>(NumberField(json, "start").value_or(0));
  engine.unit = TextField(json, "unit").value_or("");
  engine.folder = TextField(json, "folder").value_or("");
  engine.wall = NumberField(json, "wall").value_or(0);
  const auto waiting = NumberField(json, "waiting");
  const auto listening = json.find("listening");
  if (!waiting || listening == json.end() || !listening->is_boolean()) return engine;
  engine.queue_known = true;
  engine.queue.listening = listening->get<bool>();
  engine.queue.waiting = static_cast<uint32_t>(*waiting);
  if (const auto room = NumberField(json, "room")) engine.queue.room = static_cast<uint32_t>(*room);
  return engine;
}

}  // namespace

std::string StateText(const RestartState& state) {
  Json json = JsonObject();
  json["boot_id"] = state.row.boot_id;
  json["last_ms"] = state.row.last_ms;
  json["dead_ms"] = state.row.dead_ms;
  json["first_ms"] = state.row.first_ms;
  json["starts"] = state.row.starts;
  json["start_wall"] = state.start_wall;
  json["host_kills"] = OrNull(state.counters.host);
  json["group"] = ToUtf8(state.counters.group);
  json["group_kills"] = OrNull(state.counters.kills);
  json["engine"] = EngineJson(state.engine);
  return JsonText(json) + "\n";
}

RestartState ParseState(const std::string& text) {
  const Json json = ParseObject(text);
  RestartState state;
  state.row.boot_id = TextField(json, "boot_id").value_or("");
  state.row.last_ms = NumberField(json, "last_ms").value_or(-1);
  state.row.dead_ms = NumberField(json, "dead_ms").value_or(-1);
  state.row.first_ms = NumberField(json, "first_ms").value_or(-1);
  state.row.starts = NumberField(json, "starts").value_or(0);
  state.start_wall = NumberField(json, "start_wall").value_or(0);
  state.counters.host = NumberField(json, "host_kills");
  state.counters.group = TextField(json, "group").value_or("");
  state.counters.kills = NumberField(json, "group_kills");
  const auto engine = json.find("engine");
  if (engine != json.end() && engine->is_object()) state.engine = ParseEngine(*engine);
  return state;
}

RestartState ReadState(const RecordFolder& folder) {
  const auto text = folder.Read(FILE_NAME, TEXT_LIMIT);
  return text ? ParseState(*text) : RestartState{};
}

int ChangeState(const RecordFolder& folder, const std::function<void(RestartState* state)>& change) {
  const base::UniqueFd lock = folder.Lock();
  RestartState state = ReadState(folder);
  change(&state);
  return folder.Replace(FILE_NAME, StateText(state));
}

void NoteEngine(const ProcessRow& engine, int64_t port, RestartState* state) {
  const std::string groups = ReadGroupText(engine.pid);
  const std::string group = MemoryGroupFolder(groups);
  const bool known = engine.pid == state->engine.pid && engine.start == state->engine.start;
  if (!group.empty() && !known) state->counters = ReadKillCounters(group);
  const auto queue = port > 0 && port < 65536 ? ReadAcceptQueue(static_cast<uint16_t>(port)) : std::nullopt;
  state->engine = {.pid = engine.pid,
                   .start = engine.start,
                   .unit = UnitIn(groups),
                   .folder = LinkTarget(ProcFile(engine.pid, "cwd")),
                   .wall = std::time(nullptr),
                   .queue_known = queue.has_value(),
                   .queue = queue.value_or(AcceptQueue{})};
}

}  // namespace ctl
