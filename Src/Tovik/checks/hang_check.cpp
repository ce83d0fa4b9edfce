#include "Tovik/checks/hang_check.h"

#include <algorithm>
#include <cstdint>

#include "Tovik/checks/process_search.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/engine_session.h"
#include "Tovik/trace.h"
#include "base/stop.h"

#define HANG_TRACE(...) \
  DUNRA_NAMED_TRACE(TRACE_HANG, TRACE_FATAL, TRACE_MAIN_CHANNEL, m_hang_save_flag, __VA_ARGS__)

namespace {

constexpr const char* ENGINE_HOST = "127.0.0.1";
constexpr int64_t FULL_CHECK = 1;
constexpr int64_t SHORTEST_PAUSE = 60;  // seconds

// The pid that the engine says it has; 0, which no process has, when it says none.
int64_t ExpectedPid() {
  int64_t pid = 0;
  return ReadPidFile(m_sz_svc_pid_file, &pid) ? std::max<int64_t>(pid, 0) : 0;
}

void Probe() {
  const int port = static_cast<int>(m_PROC_PORT);
  long session = 0;
  TRACE(TRACE_DEBUG, "try: hangCheckProc Session_Create [%s] [%d]", ENGINE_HOST, port);
  if (Session_Create(ENGINE_HOST, port, &session) == 0) {
    HANG_TRACE("[ %s ] health check : alived", m_sz_proc_name);
  } else {
    HANG_TRACE("[ %s ] health check : deaded - disconnect", m_sz_proc_name);
  }
  // Without a connection this closes descriptor 0, which Session_Destroy keeps from being free.
  const int destroyed = Session_Destroy(session);
  TRACE(TRACE_DEBUG, "try: hangCheckProc Session_Destroy [ %d ]", destroyed);
}

}  // namespace

void HangCycle() {
  hangCheckProc(m_sz_proc_name);
  TRACE(TRACE_INFO, "send_timer Hang Time [ %d ]", static_cast<int>(m_Hang_Time));
  base::SleepSeconds(HangPause(m_Hang_Time));
}

int64_t HangPause(int64_t hangTime) {
  return hangTime >= SHORTEST_PAUSE ? hangTime : hangTime + SHORTEST_PAUSE;
}

int hangCheckProc(const char* name) {
  TRACE(TRACE_INFO, "try: hangCheckProc start [ %d ]", 0);
  const int64_t pid = ExpectedPid();
  bool running = false;
  {
    const sysinfo::ProcessNames processes = SpacedSnapshot();
    if (processes.Size() == 0) return 0;
    running = FindProcess(processes, name, pid).verdict == Search::FOUND;
  }
  if (running && m_hang_save_flag == FULL_CHECK) {
    Probe();
  } else {
    HANG_TRACE("[ %s ] health check : deaded - process", m_sz_proc_name);
  }
  return 1;
}
