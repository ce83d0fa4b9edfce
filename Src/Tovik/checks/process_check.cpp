#include "Tovik/checks/process_check.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "Tovik/checks/engine_notices.h"
#include "Tovik/checks/engine_state.h"
#include "Tovik/checks/process_search.h"
#include "Tovik/checks/threshold_check.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/findings/findings.h"
#include "Tovik/trace.h"
#include "base/child_process.h"
#include "base/format.h"
#include "base/stoppable_wait.h"

namespace {

int32_t m_pid = 0;  // from the engine's PID file, for the trace only

// Returns 1 when the engine was found and measured, or when the search met a process without a name; 0 when
// the engine is not running.
int proc_run_func(const char* name) {
  const SearchResult checkedProcess = FindEngine(name);
  switch (checkedProcess.verdict) {
    case Search::ABSENT:
    case Search::NO_TABLE:
      return 0;
    case Search::NAMELESS:
      TRACE(TRACE_INFO, "mis match inputProcessName [ %s ]", name);
      return 1;
    case Search::FOUND:
      break;
  }
  TRACE(TRACE_INFO, "match inputProcessName [ %s ] systemProcessName [ %s ] systemProcessID [ %d ]", name,
        name, checkedProcess.pid);
  TRACE(TRACE_INFO, "g_shm_open_flag = %d", g_shm_open_flag.load());
  TellEngineFound(name, checkedProcess.pid);
  CheckThresholds(name, checkedProcess.pid);
  return 1;
}

void RestartEngine() {
  const std::string processCommand = base::Format("\"%s\" %s", m_sz_shell_file, m_sz_shell_method);
  TRACE(TRACE_INFO, "process exec [ %s ]", processCommand.c_str());
  const ScriptRun processScript;
  const int processScriptStatus = base::RunShell(processCommand, processScript.NoticeLimit());
  const int processScriptError = errno;
  processScript.TellScriptEnd(processScriptStatus, processScriptError);
  if (processScriptStatus >= 0) return;
  // A script that the stop no longer waits for was started all the same.
  if (processScriptError == ECANCELED) return;
  TRACE(TRACE_ERROR, "Error: Unable to start service[%d] [%s]", processScriptError,
        std::strerror(processScriptError));
}

int ProcessTick(const char* name) {
  int64_t processPid = m_pid;
  if (ReadPidFile(m_sz_svc_pid_file, &processPid)) m_pid = static_cast<int32_t>(processPid);
  const int processRuns = proc_run_func(name);
  engineState = processRuns == 1 ? EngineState::RUNS : EngineState::STARTED_AGAIN;
  if (processRuns == 1) return 0;
  TRACE(TRACE_INFO, "proc_run_func [ %d ] ProcessID [ %d ]", processRuns, m_pid);
  TRACE(TRACE_INFO, "%s process start.", name);
  TellEngineMissing(name);
  const std::string restartMessage = RestartMessage(name);
  Raise({Finding::ENGINE_DEAD, name, restartMessage.c_str(), m_sz_cfg_file});
  RestartEngine();
  base::SleepSeconds(m_restart_period);
  return 1;
}

}  // namespace

void ProcessCycle() {
  TRACE(TRACE_INFO, "send_timer Process Time [ %d ]", static_cast<int>(m_restart_period));
  TovikProc(m_sz_proc_name);
  base::SleepSeconds(m_restart_period);
}

int TovikProc(const char* name) {
  try {
    return ProcessTick(name);
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the check of %s", name);
    return 0;
  }
}
