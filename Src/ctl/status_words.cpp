#include <algorithm>
#include <string>

#include "base/format.h"
#include "ctl/duration.h"
#include "ctl/output.h"
#include "ctl/status_forms.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr size_t LABEL_COLUMNS = 10;
constexpr double GB = 1024.0 * 1024 * 1024;
constexpr double MB = 1024.0 * 1024;
constexpr int PERCENT = 100;

Colour ColourOf(ExitStatus status) {
  constexpr Colour COLOURS[] = {Colour::GREEN, Colour::YELLOW, Colour::RED, Colour::GREY};
  return COLOURS[status];
}

// The name of a row, coloured by the worst finding of that row.
std::string Label(const char* name, const Findings& findings) {
  const std::string label = Padded(name, LABEL_COLUMNS);
  const auto found = std::find_if(findings.begin(), findings.end(), [&](const StatusFinding& finding) {
    return std::string_view(finding.rule->row) == name;
  });
  return found == findings.end() ? label : Paint(ColourOf(found->rule->severity), label);
}

std::string Up(const ProcessSeen& process, time_t now) {
  return std::to_string(process.pid) + ", up " + DurationWords(now - process.start);
}

std::string StateWords(const ProcessSeen& process) {
  return process.Zombie() ? ", a zombie" : process.Stopped() ? ", stopped" : "";
}

std::string AgentRow(const Picture& seen) {
  const AgentPicture& agent = seen.agent;
  if (!agent.known) return "not known: /proc hides it";
  if (!agent.process)
    return "does not run" +
           (agent.file_name.empty()
                ? ""
                : "; its PID file names " + std::to_string(*agent.file_pid) + ", now " + agent.file_name);
  std::string text =
      Up(*agent.process, seen.time) + ", user " + agent.process->user + StateWords(*agent.process);
  if (agent.config_newer.value_or(false))
    text += "; works with the configuration of before " + ShortTime(agent.config_time, seen.time);
  return text;
}

std::string Memory(const ProcessSeen& process, std::optional<uint64_t> host) {
  const auto rss = static_cast<double>(*process.rss);
  if (rss < GB || !host) return base::Format(", %.0f MB", rss / MB);
  return base::Format(", %.1f of %.1f GB", rss / GB, static_cast<double>(*host) / GB);
}

std::string EngineRow(const Picture& seen) {
  if (!seen.engine.known) return "not known: /proc hides it";
  if (!seen.engine.process) return "does not run";
  const ProcessSeen& engine = *seen.engine.process;
  std::string text = Up(engine, seen.time) + StateWords(engine);
  if (engine.Zombie()) return text;
  if (engine.threads)
    text += ", " + std::to_string(*engine.threads) + (*engine.threads == 1 ? " thread" : " threads");
  if (!engine.fds) {
    text += ", descriptors may not be counted";
  } else {
    text += ", " + std::to_string(*engine.fds);
    text += (engine.fd_limit ? " of " + std::to_string(*engine.fd_limit) : "") + " descriptors";
  }
  if (engine.rss) text += Memory(engine, seen.host_memory);
  if (seen.engine.file_pid && *seen.engine.file_pid != engine.pid)
    text += "; its PID file says " + std::to_string(*seen.engine.file_pid) + ", which the hang check goes by";
  return text;
}

std::string PortRow(const Picture& seen) {
  const auto& queue = seen.port.queue;
  std::string text = AcceptQueueWords(seen.config->port, queue).substr(5);  // without "port "
  if (queue && queue->listening && !queue->at_loopback) text += ", not at 127.0.0.1";
  if (seen.port.second_look) text += ", " + std::to_string(*seen.port.second_look) + " a moment later";
  if (seen.port.overflows)
    text += base::Format("; %llu overflows on this host since boot",
                         static_cast<unsigned long long>(*seen.port.overflows));
  return text;
}

std::string Alarm(const Figure& figure, bool never) {
  return "alarm at " + std::to_string(figure.limit) + (never ? ": never" : "");
}

std::string FigureRow(const Figure& figure, bool never, time_t now) {
  return std::to_string(figure.value) + " %  (" + Alarm(figure, never) + ")   " + ShortTime(figure.time, now);
}

// Adds the engine's true share, as the agent's figure is MB over kB.
std::string MemoryRow(const Picture& seen, const Figure& figure) {
  const auto& engine = seen.engine.process;
  if (!engine || !engine->rss || !seen.host_memory) return FigureRow(figure, NeverReached(figure), seen.time);
  const double share = PERCENT * static_cast<double>(*engine->rss) / static_cast<double>(*seen.host_memory);
  return base::Format("%.1f %%  (the agent's figure is %lld, %s)   %s", share,
                      static_cast<long long>(figure.value), Alarm(figure, NeverReached(figure)).c_str(),
                      ShortTime(figure.time, seen.time).c_str());
}

std::string ChannelsRow(const Picture& seen) {
  if (!seen.log->channels_watched.value_or(true)) {
    const auto& agent = seen.agent.process;
    const std::string when = agent ? " (" + ShortTime(agent->start, seen.time) + ")" : "";
    return "not watched: the engine did not answer when the agent started" + when;
  }
  return seen.log->channels ? FigureRow(*seen.log->channels, seen.log->channels->limit > PERCENT, seen.time)
                            : "no figure in the log";
}

std::string HangRow(const Picture& seen) {
  const HangPicture& hang = *seen.hang;
  if (!hang.Deaded()) return hang.last + "   " + ShortTime(hang.time, seen.time);
  const int64_t every = seen.config ? seen.config->checks.hang_alarm : 0;
  const bool told = every > 0 && hang.in_a_row >= every;
  std::string text = hang.last + " since " + ShortTime(hang.since, seen.time) + ", " +
                     std::to_string(hang.in_a_row) + " in a row; " +
                     (told ? "told after every " + std::to_string(every) : "nobody was told");
  const auto& engine = seen.engine.process;
  if (engine && engine->start >= hang.time) text += "; the engine was started after that";
  return text;
}

std::string RestartsRow(const Picture& seen) {
  const RestartsPicture& restarts = *seen.restarts;
  std::string text = restarts.day == 0 ? "none in 24 h" : std::to_string(restarts.day) + " in 24 h";
  if (!restarts.whole) text += " as far as the log was read";
  if (restarts.last != 0) text += ", last " + ShortTime(restarts.last, seen.time);
  if (!restarts.verdict.empty()) text += ": " + restarts.verdict;
  return text + (restarts.evidence.empty() ? "" : " (evidence " + restarts.evidence + ")");
}

std::string ToldRow(const Picture& seen) {
  std::string text = "nobody, as far as the log was read";
  if (seen.log->told) {
    const Told& told = *seen.log->told;
    text = ShortTime(told.time, seen.time) + " " + told.what + " by " +
           (told.mail && told.chat ? "mail and chat"
            : told.mail            ? "mail"
                                   : "chat");
  }
  const auto add = [&](const Undelivered& one) {
    text += "; " + one.channel + (one.destination.empty() ? ": " : " " + Shown(one.destination) + " ") +
            one.reason + " since " + ShortTime(one.since, seen.time);
  };
  std::for_each(seen.log->undelivered.begin(), seen.log->undelivered.end(), add);
  std::for_each(seen.servers.begin(), seen.servers.end(), add);
  return text;
}

class Rows {
 public:
  explicit Rows(const Findings& findings) : findings_(findings) {}
  void Add(const char* name, const std::string& text) { text_ += Label(name, findings_) + text + "\n"; }
  std::string Text() const { return text_; }

 private:
  const Findings& findings_;
  std::string text_;
};

void AddSeen(const Picture& seen, Rows* rows) {
  rows->Add("agent", AgentRow(seen));
  rows->Add("engine", EngineRow(seen));
  rows->Add("port", PortRow(seen));
  if (seen.log) {
    if (seen.log->cpu) rows->Add("cpu", FigureRow(*seen.log->cpu, seen.log->cpu->limit > PERCENT, seen.time));
    if (seen.log->memory) rows->Add("memory", MemoryRow(seen, *seen.log->memory));
    rows->Add("channels", ChannelsRow(seen));
  }
  if (seen.hang) rows->Add("hang log", HangRow(seen));
  if (seen.restarts) rows->Add("restarts", RestartsRow(seen));
  if (!seen.record_hidden.empty()) rows->Add("record", "not readable: " + Shown(seen.record_hidden));
  if (seen.log) rows->Add("told", ToldRow(seen));
  if (seen.pause) rows->Add("pause", PauseWords(*seen.pause));
}

}  // namespace

std::string StatusWords(const Picture& seen, const Findings& findings) {
  const ExitStatus worst = WorstOf(findings);
  std::string text = Paint(ColourOf(worst), VerdictName(worst)) + "  " + VerdictText(seen, findings) + "\n\n";
  Rows rows(findings);
  if (seen.config) AddSeen(seen, &rows);
  for (const NotKnown& one : seen.not_known) rows.Add("not known", one.what + ": " + one.why);
  return text + rows.Text();
}

}  // namespace ctl
