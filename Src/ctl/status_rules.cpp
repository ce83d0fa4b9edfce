#include "ctl/status_rules.h"

#include <algorithm>
#include <string>

#include "base/format.h"
#include "ctl/clock.h"
#include "ctl/duration.h"
#include "ctl/text.h"

namespace ctl {
namespace {

using Verdict = std::optional<Complaint>;

constexpr time_t DAY = time_t{24} * 60 * 60;
constexpr time_t SHORTEST_START = 60;     // seconds that an engine has until it must listen
constexpr time_t SHORTEST_SILENCE = 600;  // seconds that peers may hold up the agent's checks
constexpr uint32_t MANY_WAIT = 16;        // when the backlog is not known
constexpr uint64_t FEW_LEFT = 10;         // a tenth of the descriptors

const AgentChecks& Checks(const Picture& seen) {
  static const AgentChecks NONE;
  return seen.config ? seen.config->checks : NONE;
}

Verdict Say(std::string text, std::optional<time_t> since = std::nullopt) {
  return Complaint{std::move(text), since};
}

std::string Port(const Picture& seen) {
  return "port " + std::to_string(seen.config ? seen.config->port : 0);
}

// The engine if it lives; else null.
const ProcessSeen* Engine(const Picture& seen) {
  const auto& process = seen.engine.process;
  return process && !process->Zombie() ? &*process : nullptr;
}

const AcceptQueue* Listening(const Picture& seen) {
  const auto& queue = seen.port.queue;
  return queue && queue->listening ? &*queue : nullptr;
}

Verdict AgentGone(const Picture& seen) {
  if (!seen.config || !seen.agent.known || seen.agent.process) return {};
  std::string text = "the agent does not run: nobody watches " + EngineName(seen);
  if (!seen.agent.file_name.empty())
    text += "; its PID file names " + std::to_string(*seen.agent.file_pid) + ", now " + seen.agent.file_name;
  return Say(text);
}

Verdict QueueFull(const Picture& seen) {
  const AcceptQueue* queue = Listening(seen);
  if (queue == nullptr || !queue->Full()) return {};
  return Say(base::Format("%s takes no connections: %u wait, room for %u (%s)", EngineName(seen).c_str(),
                          queue->waiting, *queue->room, Port(seen).c_str()));
}

Verdict EngineGone(const Picture& seen) {
  if (!seen.config || !seen.engine.known || seen.engine.process) return {};
  return Say(EngineName(seen) + " does not run");
}

Verdict EngineZombie(const Picture& seen) {
  const auto& process = seen.engine.process;
  if (!process || !process->Zombie()) return {};
  return Say(EngineName(seen) + " is dead and not reaped: process " + std::to_string(process->pid) +
             " is a zombie");
}

Verdict EngineStopped(const Picture& seen) {
  const ProcessSeen* engine = Engine(seen);
  if (engine == nullptr || !engine->Stopped()) return {};
  return Say(EngineName(seen) + " is stopped by a signal or a debugger: process " +
             std::to_string(engine->pid));
}

bool Closed(const Picture& seen) {
  return Engine(seen) != nullptr && seen.port.queue && !seen.port.queue->listening;
}

bool Starting(const Picture& seen) {
  return seen.time - Engine(seen)->start < std::max<time_t>(SHORTEST_START, Checks(seen).period);
}

Verdict PortClosed(const Picture& seen) {
  if (!Closed(seen) || Starting(seen)) return {};
  return Say(EngineName(seen) + " does not listen on " + Port(seen));
}

Verdict PortNotYet(const Picture& seen) {
  if (!Closed(seen) || !Starting(seen)) return {};
  return Say(EngineName(seen) + " does not listen on " + Port(seen) + " yet, " +
             DurationWords(seen.time - Engine(seen)->start) + " after its start");
}

Verdict PortElsewhere(const Picture& seen) {
  const AcceptQueue* queue = Listening(seen);
  if (queue == nullptr || queue->at_loopback) return {};
  return Say(Port(seen) + " takes no connections to 127.0.0.1: it listens on IPv6 only or another address");
}

Verdict AgentStopped(const Picture& seen) {
  if (!seen.agent.process || !seen.agent.process->Stopped()) return {};
  return Say("the agent is stopped by a signal or a debugger: nobody watches " + EngineName(seen));
}

Verdict QueueHalf(const Picture& seen) {
  const AcceptQueue* queue = Listening(seen);
  if (queue == nullptr || queue->Full() || queue->waiting == 0) return {};
  const std::string wait = std::to_string(queue->waiting) + " connections wait on " + Port(seen);
  if (!queue->room) return queue->waiting < MANY_WAIT ? Verdict() : Say(wait + ", room not known");
  if (uint64_t{queue->waiting} * 2 < *queue->room) return {};
  return Say(wait + ", room for " + std::to_string(*queue->room));
}

Verdict QueueStays(const Picture& seen) {
  const AcceptQueue* queue = Listening(seen);
  if (queue == nullptr || queue->Full() || !seen.port.second_look) return {};
  if (queue->waiting == 0 || *seen.port.second_look < queue->waiting) return {};
  return Say(base::Format("the queue of %s did not shrink: %u wait, then %u", Port(seen).c_str(),
                          queue->waiting, *seen.port.second_look));
}

Verdict HangDeaded(const Picture& seen) {
  if (DeadedChecks(seen) == 0) return {};
  const std::string times =
      seen.hang->in_a_row == 1 ? "once, at " : std::to_string(seen.hang->in_a_row) + " times in a row since ";
  return Say(
      "the hang check said \"" + seen.hang->last + "\" " + times + ShortTime(seen.hang->since, seen.time),
      seen.hang->since);
}

Verdict ChannelsNotWatched(const Picture& seen) {
  if (!seen.log || seen.log->channels_watched.value_or(true) || !seen.agent.process) return {};
  // Nobody wants them: a limit of 101 is how a configuration says never.
  if (Checks(seen).channel_limit > 100 && Checks(seen).servers.empty()) return {};
  return Say("the channels are not watched: the engine did not answer when the agent started",
             seen.agent.process->start);
}

Verdict Over(const Picture& seen, const char* name, std::optional<Figure> MainLogPicture::*member) {
  if (!seen.log || !((*seen.log).*member)) return {};
  const Figure& figure = *((*seen.log).*member);
  const time_t fresh = std::max(SHORTEST_SILENCE, 3 * static_cast<time_t>(Checks(seen).period));
  if (figure.value < figure.limit || seen.time - figure.time > fresh) return {};
  return Say(base::Format("%s at %lld %%, alarm at %lld", name, static_cast<long long>(figure.value),
                          static_cast<long long>(figure.limit)),
             figure.time);
}

Verdict CpuOver(const Picture& seen) {
  return Over(seen, "processor", &MainLogPicture::cpu);
}
Verdict MemoryOver(const Picture& seen) {
  return Over(seen, "the agent's memory figure", &MainLogPicture::memory);
}
Verdict ChannelsOver(const Picture& seen) {
  return Over(seen, "channels", &MainLogPicture::channels);
}

Verdict DescriptorsFew(const Picture& seen) {
  const ProcessSeen* engine = Engine(seen);
  if (engine == nullptr || !engine->fds || !engine->fd_limit) return {};
  if (*engine->fds + *engine->fd_limit / FEW_LEFT < *engine->fd_limit) return {};
  return Say(EngineName(seen) + " has " + std::to_string(*engine->fds) + " of " +
             std::to_string(*engine->fd_limit) + " descriptors open");
}

Verdict Restarted(const Picture& seen) {
  if (!seen.restarts || seen.restarts->hour == 0) return {};
  return Say(std::to_string(seen.restarts->hour) + (seen.restarts->hour == 1 ? " restart" : " restarts") +
                 " in the last hour, the last at " + ShortTime(seen.restarts->last, seen.time),
             seen.restarts->last);
}

Verdict NotDelivered(const Picture& seen) {
  std::string text;
  std::optional<time_t> since;
  const auto add = [&](const Undelivered& one) {
    text += text.empty() ? "" : "; ";
    text += one.channel + (one.destination.empty() ? "" : " " + Shown(one.destination)) + ": " + one.reason;
    if (!since || one.since < *since) since = one.since;
  };
  if (seen.log) std::for_each(seen.log->undelivered.begin(), seen.log->undelivered.end(), add);
  std::for_each(seen.servers.begin(), seen.servers.end(), add);
  return text.empty() ? Verdict() : Say("the last delivery failed by " + text, since);
}

Verdict AgentSilent(const Picture& seen) {
  if (!seen.agent.process || !Checks(seen).traces || !Checks(seen).processes || !seen.log) return {};
  const time_t silence = std::max(SHORTEST_SILENCE, 3 * static_cast<time_t>(Checks(seen).period));
  const time_t last = std::max(seen.log->last, seen.agent.process->start);
  if (seen.time - last < silence) return {};
  return Say("the agent has written nothing for " + DurationWords(seen.time - last), last);
}

Verdict ConfigNewer(const Picture& seen) {
  if (!seen.agent.process || !seen.agent.config_newer.value_or(false)) return {};
  return Say("the configuration was changed at " + ShortTime(seen.agent.config_time, seen.time) +
                 ", the agent runs since " + ShortTime(seen.agent.process->start, seen.time) +
                 ": it works with the old one",
             seen.agent.config_time);
}

Verdict Paused(const Picture& seen) {
  if (!seen.pause) return {};
  return Say("restarts are " + PauseWords(*seen.pause));
}

Verdict Unknown(const Picture& seen) {
  std::string text;
  for (const NotKnown& one : seen.not_known)
    text += (text.empty() ? "cannot tell: " : "; ") + one.what + ": " + one.why;
  return text.empty() ? Verdict() : Say(text);
}

// clang-format off
constexpr StatusRule RULES[] = {
    {"agent-gone", BROKEN, "agent", "no process of the agent's name runs", AgentGone},
    {"queue-full", BROKEN, "port", "more connections wait than the engine's port has room for", QueueFull},
    {"engine-gone", BROKEN, "engine", "no process of the engine's name runs", EngineGone},
    {"engine-zombie", BROKEN, "engine", "the engine is dead and its parent has not reaped it", EngineZombie},
    {"engine-stopped", BROKEN, "engine", "the engine is stopped by a signal or a debugger", EngineStopped},
    {"port-closed", BROKEN, "port", "the engine lives and nobody listens on its port", PortClosed},
    {"port-elsewhere", BROKEN, "port", "the port takes no connections to 127.0.0.1", PortElsewhere},
    {"agent-stopped", BROKEN, "agent", "the agent is stopped by a signal or a debugger", AgentStopped},
    {"port-not-yet", TO_LOOK_AT, "port", "the engine was started a moment ago and does not listen yet", PortNotYet},
    {"queue-half", TO_LOOK_AT, "port", "half of the room for waiting connections is taken", QueueHalf},
    {"queue-stays", TO_LOOK_AT, "port", "connections wait and did not become fewer between two looks", QueueStays},
    {"hang-deaded", TO_LOOK_AT, "hang log", "the last hang check of this engine found it dead", HangDeaded},
    {"cpu-over", TO_LOOK_AT, "cpu", "the processor's figure reaches its threshold", CpuOver},
    {"memory-over", TO_LOOK_AT, "memory", "the memory figure reaches its threshold", MemoryOver},
    {"channels-over", TO_LOOK_AT, "channels", "the channels' figure reaches its threshold", ChannelsOver},
    {"descriptors-few", TO_LOOK_AT, "engine", "nine tenths of the engine's descriptors are open", DescriptorsFew},
    {"channels-not-watched", TO_LOOK_AT, "channels", "the agent came up before its engine and does not watch the channels", ChannelsNotWatched},
    {"restarted", TO_LOOK_AT, "restarts", "the engine was restarted in the last hour", Restarted},
    {"not-delivered", TO_LOOK_AT, "told", "the last delivery of a channel failed", NotDelivered},
    {"agent-silent", TO_LOOK_AT, "agent", "the agent runs and its log stands still", AgentSilent},
    {"config-newer", TO_LOOK_AT, "agent", "the configuration was changed after the agent's start", ConfigNewer},
    {"paused", TO_LOOK_AT, "pause", "restarts are held by a pause", Paused},
    {"not-known", CANNOT_TELL, "not known", "something that counts could not be read", Unknown},
};
// clang-format on

}  // namespace

std::span<const StatusRule> StatusRules() {
  return RULES;
}

std::vector<StatusFinding> Judge(const Picture& seen) {
  std::vector<StatusFinding> findings;
  for (const ExitStatus severity : {BROKEN, TO_LOOK_AT, CANNOT_TELL}) {
    for (const StatusRule& rule : RULES) {
      if (rule.severity != severity) continue;
      if (auto found = rule.judge(seen)) findings.push_back({&rule, std::move(found->text), found->since});
    }
  }
  return findings;
}

ExitStatus WorstOf(const std::vector<StatusFinding>& findings) {
  return findings.empty() ? ALL_WELL : findings.front().rule->severity;
}

const char* VerdictName(ExitStatus status) {
  constexpr const char* NAMES[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
  return NAMES[status];
}

std::string VerdictText(const Picture& seen, const std::vector<StatusFinding>& findings) {
  if (!findings.empty()) return findings.front().text;
  const AcceptQueue* queue = Listening(seen);
  std::string text = EngineName(seen) + " takes connections (" + Port(seen) + ")";
  if (queue != nullptr && queue->waiting > 0) text += ", " + std::to_string(queue->waiting) + " wait";
  return text;
}

int64_t DeadedChecks(const Picture& seen) {
  if (!seen.hang || !seen.hang->Deaded()) return 0;
  return Engine(seen) != nullptr && Engine(seen)->start >= seen.hang->time ? 0 : seen.hang->in_a_row;
}

std::string EngineName(const Picture& seen) {
  return seen.config ? Shown(seen.config->process) : "the engine";
}

std::string ShortTime(time_t time, time_t now) {
  const bool today = LocalTime(time, "%F") == LocalTime(now, "%F");
  return LocalTime(time, today ? "%H:%M:%S" : now - time < 300 * DAY ? "%b %e %H:%M" : "%F %H:%M");
}

bool NeverReached(const Figure& memory) {
  return memory.value == 0 && memory.limit >= 1;
}

}  // namespace ctl
