#include "Tovik/agent.h"

#include <malloc.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <new>
#include <optional>
#include <string>

#include "Tovik/alarms/alarm_mail_refusals.h"
#include "Tovik/alarms/curl_transfer.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/alarms/recipients_reload.h"
#include "Tovik/checks/channel_check.h"
#include "Tovik/checks/process_search.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/exit_flag.h"
#include "Tovik/findings/findings.h"
#include "Tovik/process/build_time.h"
#include "Tovik/process/daemon.h"
#include "Tovik/process/heartbeat.h"
#include "Tovik/process/heartbeat_stream.h"
#include "Tovik/process/options.h"
#include "Tovik/process/service_manager.h"
#include "Tovik/process/signals.h"
#include "Tovik/process/standard_streams.h"
#include "Tovik/process/start_notices.h"
#include "Tovik/reports/report_senders.h"
#include "Tovik/timers/lifeline.h"
#include "Tovik/timers/timers.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "sysinfo/resource_usage.h"

namespace {

constexpr int AGENT_START_FAILED = -1;
constexpr int AGENT_SYSLOG_OPTIONS = LOG_PID | LOG_CONS;
constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;

std::optional<base::WaitsEndOnSignal> agentStartStoppable;  // while the steps that may wait are taken

bool PrintAgentBanner() {
  timespec agent_start{};
  clock_gettime(CLOCK_REALTIME, &agent_start);
  std::tm agent_start_day{};
  localtime_r(&agent_start.tv_sec, &agent_start_day);
  std::printf("DunraSTT Service Admin - %04d-%02d-%02d %02d:%02d:%02d.%03d\n", agent_start_day.tm_year + 1900,
              agent_start_day.tm_mon + 1, agent_start_day.tm_mday, agent_start_day.tm_hour,
              agent_start_day.tm_min, agent_start_day.tm_sec,
              static_cast<int>(agent_start.tv_nsec / NANOSECONDS_PER_MILLISECOND));
  time_when_compiled();
  return true;
}

bool AllocateServers() {
  gSendInfo = new (std::nothrow) SEND_INFO{};
  if (gSendInfo == nullptr) TellNoStart("the management servers", ENOMEM);
  return gSendInfo != nullptr;
}
void FreeServers() {
  delete gSendInfo;
  gSendInfo = nullptr;
}

bool FindAgentAddress() {
  GetMyIpAddr(gIpaddr);
  return true;
}

bool ReadAgentConfiguration() {
  base::CopyText(m_sz_configfile, sizeof m_sz_configfile, given_options.configFile);
  if (ReadCfg() == 1) return true;
  TellNoConfiguration(errno);
  TRACE(TRACE_ERROR, "Config Setting Read Failed.");
  return false;
}

bool ReadRecipients() {
  if (!LoadRecipients()) {
    TellNoStart("the recipients", ENOMEM);
    return false;
  }
  KeepRecipientTimes();
  return true;
}
void ForgetRecipients() {
  EMailListFree(*gEmailLists.Get());
  gEmailLists.Set({});
}

bool DaemonizeAgent() {
  DaemonizeIfGiven(m_sz_touch_file);
  return true;
}

bool HearPeers() {
  alarms::HearMailServers();
  return true;
}

bool FindServiceManager() {
  TakeServiceManager();
  return true;
}

bool ChangeToAgentFolder() {
  const std::string agent_path = app_name;
  const size_t agent_folder_end = agent_path.rfind('/');
  if (agent_folder_end == std::string::npos) return true;
  [[maybe_unused]] const int changed = ::chdir(agent_path.substr(0, agent_folder_end + 1).c_str());
  return true;
}

bool OpenAgentSyslog() {
  ::openlog(app_name, AGENT_SYSLOG_OPTIONS, LOG_DAEMON);
  syslog(LOG_INFO, "Started %s", app_name);
  return true;
}

void StopAgent();

// From here on a stop signal is kept for the main loop, and cuts what start-up waits for.
bool TakeAgentSignals() {
  if (base::StopPrepare() < 0) {
    TellNoStart("the stop cannot be prepared", errno);
    return false;
  }
  InstallSignalHandlers(StopAgent);
  agentStartStoppable.emplace();
  return true;
}

bool OpenHeartbeats() {
  OpenHeartbeatStream();
  return true;
}

bool ProveAgentConfiguration() {
  read_conf_file(0);
  return true;
}

bool ConfigureAgentTrace() {
  DunraSTTUtils::SetPath(m_sz_txt_path);
  DunraSTTUtils::SetLogLevel(m_log_level);
  DunraSTTUtils::SetLogHostnameFlag(m_log_hostname_inc_flag);
  DunraSTTUtils::SetHangPath(m_hang_path);
  TraceBadOptions();
  return true;
}

// 1 when the process table does not hold exactly one process of the agent's name.
int IsRunning() {
  const sysinfo::ProcessNames processes = SpacedSnapshot();
  if (processes.Size() == 0) return 0;
  // A process may call itself "", but it is not the agent.
  const bool agent_named = *m_sz_watchdog_name != '\0';
  if (agent_named && CountProcesses(processes, m_sz_watchdog_name) == 1) return 0;
  TellNotAlone(processes, m_sz_watchdog_name, ::getpid());
  return 1;
}

bool RefuseSecondAgent() {
  if (IsRunning() == 0) return true;
  TRACE(TRACE_ERROR, "DunraSTT_Admin Already Running");
  return false;
}

bool WriteAgentPidFile() {
  const base::UniqueFile agent_pid_file(std::fopen(m_sz_adm_pid_file, "wte"));
  if (!agent_pid_file) return true;
  const std::string agent_pid = base::Format("%d", ::getpid());
  std::fputs(agent_pid.c_str(), agent_pid_file.get());
  TRACE(TRACE_DEBUG, "DunraSTT_Admin GetPid [ %s ]", agent_pid.c_str());
  return true;
}

bool TellAgentStart() {
  TRACE(TRACE_INFO, "Start DunraSTT_Admin Service");
  return true;
}

// The first tick measures against this sample.
bool PrimeCpuUsage() {
  CpuUsage();
  return true;
}

// Without webhooks the libraries are left unready, which saves their memory.
bool ReadyWebHooks() {
  if (m_send_webhook_used != 0 && AlarmTransportInit() != 0) {
    TRACE(TRACE_ERROR, "WebHook: libcurl cannot be made ready");
  }
  return true;
}

bool SendAgentStartAlarm() {
  if (m_First_Alarm_Flag != 0) Raise({Finding::AGENT_STARTED});
  return true;
}

bool FirstChannelQuery() {
  AskForChannels();
  return true;
}
void ForgetChannels() {
  SHM_CLOS();
}

void RemoveAgentPidFile() {
  if (given_options.hasPidFile) ::unlink(given_options.pidFile.c_str());
}

// One step of the start, and what undoes it at the stop; either may be null. The start ends at one that is
// false.
struct AgentStep {
  bool (*start)();
  void (*stop)();
};
// clang-format off
constexpr AgentStep AGENT_STEPS[] = {
    {nullptr,                 RemoveAgentPidFile},
    {PrintAgentBanner,        nullptr},
    {AllocateServers,         FreeServers},
    {FindAgentAddress,        nullptr},
    {ReadAgentConfiguration,  nullptr},
    {ReadRecipients,          ForgetRecipients},
    {DaemonizeAgent,          nullptr},
    {HearPeers,               nullptr},
    {FindServiceManager,      nullptr},
    {ChangeToAgentFolder,     nullptr},
    {OpenAgentSyslog,         nullptr},
    {TakeAgentSignals,        nullptr},
    {OpenHeartbeats,          nullptr},
    {ProveAgentConfiguration, nullptr},
    {ConfigureAgentTrace,     nullptr},
    {RefuseSecondAgent,       nullptr},
    {WriteAgentPidFile,       nullptr},
    {TellAgentStart,          nullptr},
    {PrimeCpuUsage,           nullptr},
    {ReadyWebHooks,           nullptr},
    {nullptr,                 ForgetChannels},
    {StartManageThread,       JoinManageThread},
    {SendAgentStartAlarm,     nullptr},
    {StartTimerThreads,       JoinTimerThreads},
    {StartLifeline,           JoinLifeline},
    {FirstChannelQuery,       nullptr},
    {StartTimerThreads,       nullptr},  // the channel status, if the engine answered or is to be asked again
};
// clang-format on

// A second stop signal finds every thread joined and every block freed.
void StopAgent() {
  WriteDebugLine("stopping daemon ...");
  TRACE(TRACE_INFO, "Stop DunraSTT_Admin Service");
  TellServiceManager("STOPPING=1\nSTATUS=Stopping");
  gSvcManageThrdExit = 1;
  base::StopRequest();
  for (auto agent_step = std::rbegin(AGENT_STEPS); agent_step != std::rend(AGENT_STEPS); ++agent_step) {
    if (agent_step->stop != nullptr) agent_step->stop();
  }
  running = 0;
  std::signal(SIGINT, SIG_DFL);
}

// Other threads may run, so nothing may be torn down under them.
[[noreturn]] void EndAgentAtOnce(int status) {
  std::fflush(nullptr);
  std::_Exit(status);
}

[[noreturn]] void EndAgent() {
  const bool agent_stopped = running == 0;
  CloseHeartbeatStream();
  syslog(LOG_INFO, "Stopped %s", app_name);
  ::closelog();
  daemonShutdown();
  std::fflush(stdout);
  DieBySigint(agent_stopped);
  std::fflush(stdout);
  std::_Exit(0);
}

}  // namespace

int RunAgent(int argc, char** argv) {
  app_name = argv[0];
  ::mallopt(M_ARENA_MAX, 1);  // the threads seldom allocate at once: more heaps would only hold memory
  // Where the parent has it ignored there would be no child to wait for.
  std::signal(SIGCHLD, SIG_DFL);
  ReadyStandardStreams();
  const int agent_status = ParseOptions(argc, argv, &given_options);
  if (agent_status >= 0) return agent_status;
  for (const AgentStep& agent_step : AGENT_STEPS) {
    if (agent_step.start != nullptr && !agent_step.start()) EndAgentAtOnce(AGENT_START_FAILED);
  }
  agentStartStoppable.reset();
  MainLoop();
  EndAgent();
}
