#include "Tovik/checks/supervision.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>
#include <string>

#include "Tovik/alarms/raise_alarm.h"
#include "Tovik/checks/process_search.h"
#include "Tovik/core/state.h"
#include "Tovik/core/trace.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/reports/report_request.h"
#include "base/child.h"
#include "base/format.h"
#include "base/stop.h"
#include "sysinfo/resource_usage.h"

namespace {

// One of the three thresholds.
struct Threshold {
  const char* figure;     // as the trace lines and the body name it
  const char* overTrace;  // traced when it is reached
  const char* check;      // the alarm's name
  int alarmCode;
};
constexpr Threshold CHANNEL = {"Channel", "Channel Over", "Channel Check", ALARM_CHANNEL};
constexpr Threshold MEMORY = {"Memory", "Memory Over", "Memory Check", ALARM_MEMORY};
constexpr Threshold CPU = {"CPU", "CPU Over", "Cpu Check", ALARM_CPU};

void TraceFigure(const Threshold& threshold, int64_t value, int64_t limit) {
  TRACE(TRACE_INFO, "System %s [ %d ] Config %s [ %d ]", threshold.figure, static_cast<int>(value),
        threshold.figure, static_cast<int>(limit));
}

void RaiseThreshold(const Threshold& threshold, const char* name, int64_t value, int64_t limit) {
  TRACE(TRACE_INFO, "%s", threshold.overTrace);
  send_request(REQUEST_ALARM, threshold.alarmCode);
  const std::string body =
      base::Format("%s System %s[%d %%] Config %s[%d %%] is check", name, threshold.figure,
                   static_cast<int>(value), threshold.figure, static_cast<int>(limit));
  RaiseAlarm({ALARM_KIND_THRESHOLD, LABEL_MONITOR, threshold.check, threshold.check, name, body.c_str()});
}

void CheckChannels(const char* name) {
  if (g_shm_open_flag == 0) return;
  const int64_t usage = get_recg_svr_wrk_ch_cnt();
  const int64_t limit = gSendInfo->ch_over_value;
  gChUsage = static_cast<uint64_t>(usage);
  TraceFigure(CHANNEL, usage, limit);
  if (usage >= limit) RaiseThreshold(CHANNEL, name, usage, limit);
}

void CheckMemory(const char* name, int pid) {
  const int rss = process_memory_usage(pid);
  const int32_t figure = MemoryFigure(rss, static_cast<int64_t>(system_memory_usage()));
  const int64_t limit = gSendInfo->mem_over_value;
  gMemUsage = figure;
  TraceFigure(MEMORY, figure, limit);
  if (figure >= limit) RaiseThreshold(MEMORY, name, figure, limit);
}

void CheckCpu(const char* name) {
  const int32_t usage = system_cpu_usage();
  const int64_t limit = gSendInfo->cpu_over_value;
  gCpuUsage = usage;
  TraceFigure(CPU, usage, limit);
  if (usage == NO_CPU_USAGE) return;
  send_request(REQUEST_RESOURCE_USAGE, CODE_RESOURCE_USAGE);
  if (usage >= limit) RaiseThreshold(CPU, name, usage, limit);
}

// 1 when the engine was found and measured, or the search ended early; 0 when it counts as not running.
int proc_run_func(const char* name) {
  const sysinfo::ProcessNames processes = SpacedSnapshot();
  const SearchResult result = FindProcess(processes, name);
  switch (result.verdict) {
    case Search::ABSENT:
      return 0;
    case Search::NAMELESS:
      TRACE(TRACE_INFO, "mis match inputProcessName [ %s ]", name);
      return 1;
    case Search::FOUND:
      break;
  }
  TRACE(TRACE_INFO, "match inputProcessName [ %s ] systemProcessName [ %s ] systemProcessID [ %d ]", name,
        name, result.pid);
  TRACE(TRACE_INFO, "g_shm_open_flag = %d", g_shm_open_flag.load());
  CheckChannels(name);
  CheckMemory(name, result.pid);
  CheckCpu(name);
  return 1;
}

void StartEngine() {
  const std::string command = base::Format("\"%s\" %s", m_sz_shell_file, m_sz_shell_method);
  TRACE(TRACE_INFO, "process exec [ %s ]", command.c_str());
  if (base::RunShell(command) >= 0) return;
  const int error = errno;
  // A script that the stop no longer waits for was started all the same.
  if (error == ECANCELED) return;
  TRACE(TRACE_ERROR, "Error: Unable to start service[%d] [%s]", error, std::strerror(error));
}

int Tick(const char* name) {
  int64_t pid = m_pid;
  if (ReadPidFile(m_sz_svc_pid_file, &pid)) m_pid = static_cast<int32_t>(pid);
  const int running = proc_run_func(name);
  if (running == 1) return 0;
  TRACE(TRACE_INFO, "proc_run_func [ %d ] ProcessID [ %d ]", running, m_pid.load());
  TRACE(TRACE_INFO, "%s process start.", name);
  send_request(REQUEST_ALARM, ALARM_RESTART);
  const std::string body = base::Format("%s is Die and Restart", name);
  RaiseAlarm({ALARM_KIND_RESTART, LABEL_MONITOR, "Process Restart", "Process Check", name, body.c_str(),
              m_sz_cfg_file});
  StartEngine();
  base::SleepSeconds(m_restart_period);
  return 1;
}

}  // namespace

int TovikProc(const char* name) {
  try {
    return Tick(name);
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the check of %s", name);
    return 0;
  }
}

int32_t MemoryFigure(int rss_mb, int64_t total_kb) {
  const float figure = static_cast<float>(rss_mb) / static_cast<float>(total_kb) * 100.0F;
  const bool fits = figure > -2147483648.0F && figure < 2147483648.0F;
  return fits ? static_cast<int32_t>(figure) : INT32_MIN;
}
