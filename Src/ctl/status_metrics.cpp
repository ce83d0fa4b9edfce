#include <algorithm>
#include <map>
#include <string>

#include "base/format.h"
#include "ctl/status_forms.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr double PERCENT = 100;

// clang-format off
constexpr MetricRow METRICS[] = {
    {"dunrastt_status", "gauge", "The verdict: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN."},
    {"dunrastt_written_time_seconds", "gauge", "When these metrics were written, in seconds since 1970."},
    {"dunrastt_info", "gauge", "1; the engine's process name and the agent's configuration are the labels."},
    {"dunrastt_finding", "gauge", "1 while this rule of the verdict finds something, else 0."},
    {"dunrastt_agent_up", "gauge", "1 while the agent runs, 0 when it does not."},
    {"dunrastt_agent_start_time_seconds", "gauge", "When the agent was started, in seconds since 1970."},
    {"dunrastt_agent_config_newer", "gauge", "1 when the configuration was changed after the agent's start."},
    {"dunrastt_engine_up", "gauge", "1 while the engine runs; 0 when there is none or only a zombie."},
    {"dunrastt_engine_stopped", "gauge", "1 while the engine is stopped by a signal or a debugger."},
    {"dunrastt_engine_start_time_seconds", "gauge", "When the engine was started, in seconds since 1970."},
    {"dunrastt_engine_resident_memory_bytes", "gauge", "Resident memory of the engine."},
    {"dunrastt_engine_memory_ratio", "gauge", "The engine's resident memory over the host's memory, 0 to 1."},
    {"dunrastt_engine_threads", "gauge", "Threads of the engine."},
    {"dunrastt_engine_open_fds", "gauge", "Descriptors that the engine has open."},
    {"dunrastt_engine_max_fds", "gauge", "Descriptors that the engine may have open."},
    {"dunrastt_port_listening", "gauge", "1 while somebody listens on the engine's port."},
    {"dunrastt_port_waiting_connections", "gauge", "Connections that wait for the engine to take them."},
    {"dunrastt_port_backlog_connections", "gauge", "Connections that may wait; one more fills the queue."},
    {"dunrastt_host_listen_overflows_total", "counter", "Connections that found a full queue, of all listeners of this host since its boot."},
    {"dunrastt_figures_time_seconds", "gauge", "When the agent last measured, in seconds since 1970."},
    {"dunrastt_cpu_ratio", "gauge", "The host's processor as the agent measured it, 0 to 1."},
    {"dunrastt_cpu_limit_ratio", "gauge", "From where on the agent alarms about the processor."},
    {"dunrastt_channels_ratio", "gauge", "Recognition channels in use over all, as the agent measured it, 0 to 1."},
    {"dunrastt_channels_limit_ratio", "gauge", "From where on the agent alarms about the channels."},
    {"dunrastt_channels_watched", "gauge", "1 while the agent watches the channels; 0 when it came up before the engine."},
    {"dunrastt_hang_deaded_checks", "gauge", "Hang checks in a row that found the engine dead."},
    {"dunrastt_restarts_last_hour", "gauge", "Restarts of the engine in the last hour."},
    {"dunrastt_restarts_last_day", "gauge", "Restarts of the engine in the last 24 hours."},
    {"dunrastt_restart_time_seconds", "gauge", "The last restart in the last 24 hours, in seconds since 1970."},
    {"dunrastt_delivery_failed", "gauge", "1 for each channel and destination whose last delivery failed."},
    {"dunrastt_deliveries_failed", "gauge", "Channels and destinations whose last delivery failed."},
    {"dunrastt_pause_remaining_seconds", "gauge", "How long restarts are still held by a pause; 0 without one."},
};
// clang-format on

std::string Escaped(std::string_view value) {
  std::string text;
  for (const char letter : value) {
    if (letter == '\\' || letter == '"') text += '\\';
    text += letter;
  }
  return text;  // Shown() has removed line ends
}

std::string Label(const char* name, const std::string& value) {
  return std::string(name) + "=\"" + Escaped(Shown(value)) + "\"";
}

// Collects samples and writes them in the order of the table, the help of each metric once.
class Page {
 public:
  void Add(const char* name, double value, const std::string& labels = "") {
    const std::string braces = labels.empty() ? "" : "{" + labels + "}";
    samples_[name] += name + braces + base::Format(" %.15g\n", value);
  }
  template <typename T>
  void AddKnown(const char* name, const std::optional<T>& value) {
    if (value) Add(name, static_cast<double>(*value));
  }
  std::string Text() const {
    std::string text;
    for (const MetricRow& row : METRICS) {
      const auto found = samples_.find(row.name);
      if (found == samples_.end()) continue;
      text +=
          std::string("# HELP ") + row.name + " " + row.help + "\n# TYPE " + row.name + " " + row.type + "\n";
      text += found->second;
    }
    return text;
  }

 private:
  std::map<std::string_view, std::string> samples_;
};

void AddVerdict(const Picture& seen, const Findings& findings, Page* page) {
  page->Add("dunrastt_status", WorstOf(findings));
  page->Add("dunrastt_written_time_seconds", static_cast<double>(seen.time));
  if (seen.config)
    page->Add("dunrastt_info", 1,
              Label("engine", seen.config->process) + "," + Label("config", seen.config->file));
  for (const StatusRule& rule : StatusRules()) {
    const bool found = std::any_of(findings.begin(), findings.end(),
                                   [&](const StatusFinding& finding) { return finding.rule == &rule; });
    page->Add("dunrastt_finding", found ? 1 : 0,
              Label("id", rule.id) + "," + Label("severity", VerdictName(rule.severity)));
  }
}

void AddProcesses(const Picture& seen, Page* page) {
  const auto& agent = seen.agent.process;
  if (seen.agent.known) page->Add("dunrastt_agent_up", agent ? 1 : 0);
  if (agent) page->Add("dunrastt_agent_start_time_seconds", static_cast<double>(agent->start));
  page->AddKnown("dunrastt_agent_config_newer", seen.agent.config_newer);
  const auto& engine = seen.engine.process;
  const bool lives = engine && !engine->Zombie();
  if (seen.engine.known) page->Add("dunrastt_engine_up", lives ? 1 : 0);
  if (!lives) return;
  page->Add("dunrastt_engine_stopped", engine->Stopped() ? 1 : 0);
  page->Add("dunrastt_engine_start_time_seconds", static_cast<double>(engine->start));
  page->AddKnown("dunrastt_engine_resident_memory_bytes", engine->rss);
  if (engine->rss && seen.host_memory.value_or(0) > 0)
    page->Add("dunrastt_engine_memory_ratio",
              static_cast<double>(*engine->rss) / static_cast<double>(*seen.host_memory));
  page->AddKnown("dunrastt_engine_threads", engine->threads);
  page->AddKnown("dunrastt_engine_open_fds", engine->fds);
  page->AddKnown("dunrastt_engine_max_fds", engine->fd_limit);
}

void AddPort(const PortPicture& port, Page* page) {
  if (port.queue) page->Add("dunrastt_port_listening", port.queue->listening ? 1 : 0);
  if (port.queue && port.queue->listening) {
    page->Add("dunrastt_port_waiting_connections", port.queue->waiting);
    page->AddKnown("dunrastt_port_backlog_connections", port.queue->room);
  }
  page->AddKnown("dunrastt_host_listen_overflows_total", port.overflows);
}

void AddFigure(const char* name, const char* limit, const std::optional<Figure>& figure, Page* page) {
  if (!figure) return;
  page->Add(name, static_cast<double>(figure->value) / PERCENT);
  page->Add(limit, static_cast<double>(figure->limit) / PERCENT);
}

void AddLogs(const Picture& seen, Page* page) {
  if (seen.log) {
    if (seen.log->cpu) page->Add("dunrastt_figures_time_seconds", static_cast<double>(seen.log->cpu->time));
    AddFigure("dunrastt_cpu_ratio", "dunrastt_cpu_limit_ratio", seen.log->cpu, page);
    AddFigure("dunrastt_channels_ratio", "dunrastt_channels_limit_ratio", seen.log->channels, page);
    page->AddKnown("dunrastt_channels_watched", seen.log->channels_watched);
    std::vector<Undelivered> failed = seen.log->undelivered;
    failed.insert(failed.end(), seen.servers.begin(), seen.servers.end());
    std::map<std::string, int> once;  // a server may stand twice in a configuration
    for (const Undelivered& one : failed)
      once[Label("channel", one.channel) + "," + Label("destination", one.destination)] = 1;
    for (const auto& [labels, value] : once) page->Add("dunrastt_delivery_failed", value, labels);
    page->Add("dunrastt_deliveries_failed", static_cast<double>(once.size()));
  }
  if (seen.hang) page->Add("dunrastt_hang_deaded_checks", static_cast<double>(DeadedChecks(seen)));
  if (seen.restarts) {
    page->Add("dunrastt_restarts_last_hour", static_cast<double>(seen.restarts->hour));
    page->Add("dunrastt_restarts_last_day", static_cast<double>(seen.restarts->day));
    if (seen.restarts->last != 0)
      page->Add("dunrastt_restart_time_seconds", static_cast<double>(seen.restarts->last));
  }
}

}  // namespace

std::span<const MetricRow> MetricRows() {
  return METRICS;
}

std::string StatusMetrics(const Picture& seen, const Findings& findings) {
  Page page;
  AddVerdict(seen, findings, &page);
  if (seen.config) {
    AddProcesses(seen, &page);
    AddPort(seen.port, &page);
    AddLogs(seen, &page);
    if (seen.record_hidden.empty())
      page.Add("dunrastt_pause_remaining_seconds",
               seen.pause ? static_cast<double>(seen.pause->seconds_left) : 0);
  }
  return page.Text();
}

}  // namespace ctl
