#include "Tovik/agent.h"

#include <malloc.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>

#include "Tovik/alarms/email.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/checks/process_search.h"
#include "Tovik/core/host.h"
#include "Tovik/core/state.h"
#include "Tovik/core/trace.h"
#include "Tovik/daemon.h"
#include "Tovik/lifecycle.h"
#include "Tovik/options.h"
#include "Tovik/reports/report_request.h"
#include "Tovik/threads.h"
#include "Tovik/timer_rules.h"
#include "base/format.h"
#include "base/lossy_stream.h"
#include "base/owners.h"
#include "base/stop.h"
#include "sysinfo/resource_usage.h"

namespace {

constexpr int STARTED = 1;
constexpr int FAILED = -1;
constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;

float m_nCPU[1];  // the CPU figure at start-up

void PrintBanner() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  std::printf("DunraSTT Service Admin - %04d-%02d-%02d %02d:%02d:%02d.%03d\n", local.tm_year + 1900,
              local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
              static_cast<int>(now.tv_nsec / NANOSECONDS_PER_MILLISECOND));
}

int LoadConfiguration(const Options& options) {
  gSendInfo = new (std::nothrow) SEND_INFO{};
  if (gSendInfo == nullptr) return FAILED;
  GetMyIpAddr(gIpaddr);
  base::CopyText(m_sz_configfile, sizeof m_sz_configfile, options.configFile);
  if (ReadCfg() == 1) return STARTED;
  TRACE(TRACE_ERROR, "Config Setting Read Failed.");
  return FAILED;
}

void KeepRecipientTimes() {
  m_Receivertime = ModificationTime(m_receiver_email).value_or(0);
  m_Referencetime = ModificationTime(m_reference_email).value_or(0);
  m_Blindtime = ModificationTime(m_blind_email).value_or(0);
  TRACE(TRACE_DEBUG, "Receiver [ %d ] Reference [ %d ] Blind [ %d ]", static_cast<int>(m_Receivertime),
        static_cast<int>(m_Referencetime), static_cast<int>(m_Blindtime));
}

int LoadRecipients() {
  if (GetEMailList(m_receiver_email, m_reference_email, m_blind_email) != 1) {
    TRACE(TRACE_ERROR, "DunraSTT_Aadmin Email Setting");
    return FAILED;
  }
  KeepRecipientTimes();
  return STARTED;
}

void ChangeToProgramFolder() {
  const std::string program = app_name;
  const size_t slash = program.rfind('/');
  if (slash == std::string::npos) return;
  const std::string folder = program.substr(0, slash + 1);
  [[maybe_unused]] const int changed = ::chdir(folder.c_str());
}

void ConfigureTrace() {
  DunraSTTUtils::SetPath(m_sz_txt_path);
  DunraSTTUtils::SetLogLevel(m_log_level);
  DunraSTTUtils::SetLogHostnameFlag(m_log_hostname_inc_flag);
  DunraSTTUtils::SetHangPath(m_hang_path);
}

// 1 when the process table does not hold exactly one process of the agent's name.
int IsRunning() {
  const ProcessList processes = SpacedSnapshot();
  if (!processes) return 0;
  return CountProcesses(processes.get(), m_sz_watchdog_name) == 1 ? 0 : 1;
}

void WritePidFile() {
  const base::UniqueFile file(std::fopen(m_sz_adm_pid_file, "wte"));
  if (!file) return;
  const std::string pid = base::Format("%d", ::getpid());
  std::fputs(pid.c_str(), file.get());
  TRACE(TRACE_DEBUG, "DunraSTT_Admin GetPid [ %s ]", pid.c_str());
}

int StartThreads() {
  if (StartManageThread() != 1) return FAILED;
  if (m_First_Alarm_Flag != 0) send_request(REQUEST_ALARM, ALARM_START);
  return StartTimerThreads();
}

// The part of start-up in which a stop signal is already kept for the main loop.
int StartService() {
  const base::StopOnPendingSignal stoppable;
  OpenLogStream();
  read_conf_file(0);
  ConfigureTrace();
  if (IsRunning() == 1) {
    TRACE(TRACE_ERROR, "DunraSTT_Admin Already Running");
    return FAILED;
  }
  WritePidFile();
  TRACE(TRACE_INFO, "Start DunraSTT_Admin Service");
  m_nCPU[0] = CpuUsage();
  // Without webhooks the libraries are left unready, which saves their memory.
  if (m_send_webhook_used != 0) AlarmTransportInit();
  return StartThreads();
}

// Other threads may run already, so nothing may be torn down under them.
[[noreturn]] void EndAtOnce(int status) {
  std::fflush(nullptr);
  std::_Exit(status);
}

}  // namespace

int RunAgent(int argc, char** argv) {
  app_name = argv[0];
  ::mallopt(M_ARENA_MAX, 1);  // the threads seldom allocate at once: more heaps would only hold memory
  GuardStandardDescriptors();
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  base::MakeStandardStreamsLossy();
  Options options;
  const int status = ParseOptions(argc, argv, &options);
  if (status >= 0) return status;
  KeepOptions(options);
  PrintBanner();
  time_when_compiled();
  if (LoadConfiguration(options) != STARTED) return FAILED;
  if (LoadRecipients() != STARTED) return FAILED;
  if (options.daemon) {
    daemonize(std::getenv("PWD"), m_sz_touch_file);
    base::MakeStandardStreamsLossy();
  }
  ChangeToProgramFolder();
  ::openlog(app_name, LOG_PID | LOG_CONS, LOG_DAEMON);
  syslog(LOG_INFO, "Started %s", app_name);
  if (base::StopPrepare() < 0) return FAILED;
  InstallSignalHandlers();
  if (StartService() != STARTED) EndAtOnce(FAILED);
  MainLoop();
  return EndProcess();
}
