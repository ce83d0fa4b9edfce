#include "Tovik/checks/hang_check.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "Tovik/checks/engine_state.h"
#include "Tovik/checks/process_search.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/engine_text_session.h"
#include "Tovik/findings/findings.h"
#include "Tovik/trace.h"
#include "base/stoppable_wait.h"
#include "sysinfo/listening_port.h"

#define HANG_TRACE(...) \
  DUNRA_NAMED_TRACE(TRACE_HANG, TRACE_FATAL, TRACE_MAIN_CHANNEL, m_hang_save_flag, __VA_ARGS__)

namespace {

constexpr const char* HANG_PROBE_HOST = "127.0.0.1";
constexpr int64_t FULL_HANG_CHECK = 1;
constexpr int64_t SHORTEST_HANG_CHECK_PAUSE = 60;  // seconds

// The pid in the engine's PID file; 0, which no process has, when there is none.
int64_t EnginePidForHangCheck() {
  int64_t hangCheckPid = 0;
  return ReadPidFile(m_sz_svc_pid_file, &hangCheckPid) ? std::max<int64_t>(hangCheckPid, 0) : 0;
}

enum class HangVerdict { ALIVE, NO_CONNECTION, LONG_QUEUE, NO_PROCESS };
// The end of a hang log line, by verdict.
constexpr std::array<const char*, 4> HANG_VERDICT_WORDS = {"alived", "deaded - disconnect", "deaded - queue",
                                                           "deaded - process"};
const char* HangVerdictWords(HangVerdict hangVerdict) {
  return HANG_VERDICT_WORDS[static_cast<size_t>(hangVerdict)];
}

HangState hangState;

// Call it before the probe connects, or the probe is counted too. A queue that cannot be read counts as
// empty.
int64_t HangQueueLength(int hangProbePort) {
  if (m_hang_queue == 0) return 0;
  sysinfo::ListeningPort hangProbeQueue;
  sysinfo::ReadListeningPort(static_cast<uint16_t>(hangProbePort), &hangProbeQueue);
  return hangProbeQueue.waiting;
}

HangVerdict HangProbe() {
  const int hangProbePort = static_cast<int>(m_PROC_PORT);
  const bool queueHangs = QueueHangs(HangQueueLength(hangProbePort), m_hang_queue, &hangState);
  long hangSession = 0;
  TRACE(TRACE_DEBUG, "try: hangCheckProc Session_Create [%s] [%d]", HANG_PROBE_HOST, hangProbePort);
  HangVerdict hangVerdict = queueHangs ? HangVerdict::LONG_QUEUE : HangVerdict::ALIVE;
  if (Session_Create(HANG_PROBE_HOST, hangProbePort, &hangSession) != 0)
    hangVerdict = HangVerdict::NO_CONNECTION;
  HANG_TRACE("[ %s ] health check : %s", m_sz_proc_name, HangVerdictWords(hangVerdict));
  // Without a connection the session is 0. Session_Destroy then puts the null device in the place of
  // descriptor 0, so that the number stays taken.
  const int hangSessionEnd = Session_Destroy(hangSession);
  TRACE(TRACE_DEBUG, "try: hangCheckProc Session_Destroy [ %d ]", hangSessionEnd);
  return hangVerdict;
}

HangVerdict HangWithoutProcess() {
  HANG_TRACE("[ %s ] health check : %s", m_sz_proc_name, HangVerdictWords(HangVerdict::NO_PROCESS));
  return HangVerdict::NO_PROCESS;
}

void TellHangVerdict(const char* name, HangVerdict hangVerdict) {
  const bool hangAlarmDue = HangAlarmDue(hangVerdict == HangVerdict::ALIVE, m_hang_alarm, &hangState);
  engineHangsInARow = hangState.hangsInARow;
  if (!hangAlarmDue) return;
  const std::string hangMessage = HangMessage(name, HangVerdictWords(hangVerdict), hangState.hangsInARow);
  Raise({Finding::ENGINE_HANGS, name, hangMessage.c_str()});
}

}  // namespace

void HangCycle() {
  hangCheckProc(m_sz_proc_name);
  TRACE(TRACE_INFO, "send_timer Hang Time [ %d ]", static_cast<int>(m_Hang_Time));
  base::SleepSeconds(HangPause(m_Hang_Time));
}

int64_t HangPause(int64_t hangTime) {
  return hangTime >= SHORTEST_HANG_CHECK_PAUSE ? hangTime : hangTime + SHORTEST_HANG_CHECK_PAUSE;
}

int hangCheckProc(const char* name) {
  TRACE(TRACE_INFO, "try: hangCheckProc start [ %d ]", 0);
  const Search hangSearch = FindEngine(name, EnginePidForHangCheck()).verdict;
  if (hangSearch == Search::NO_TABLE) return 0;
  const bool engineRuns = hangSearch == Search::FOUND;
  TellHangVerdict(name,
                  engineRuns && m_hang_save_flag == FULL_HANG_CHECK ? HangProbe() : HangWithoutProcess());
  return 1;
}

bool QueueHangs(int64_t waiting, int64_t limit, HangState* hangs) {
  const bool hangQueueIsOver = limit > 0 && waiting > limit;
  return std::exchange(hangs->hangQueueWasOver, hangQueueIsOver) && hangQueueIsOver;
}

bool HangAlarmDue(bool engineAlive, int64_t every, HangState* hangs) {
  hangs->hangsInARow = engineAlive ? 0 : hangs->hangsInARow + 1;
  return !engineAlive && every > 0 && hangs->hangsInARow % every == 0;
}
