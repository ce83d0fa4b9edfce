#include "Tovik/threads.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <new>

#include "Tovik/alarms/email.h"
#include "Tovik/checks/error_log_check.h"
#include "Tovik/checks/hang_check.h"
#include "Tovik/checks/result_check.h"
#include "Tovik/checks/supervision.h"
#include "Tovik/core/state.h"
#include "Tovik/core/trace.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/reports/report_request.h"
#include "Tovik/timer_rules.h"
#include "base/stop.h"

base::Thread hManageThread;
base::Thread hTimerThread1;
base::Thread hTimerThread2;
base::Thread hTimerThread4;
base::Thread hTimerThread5;
base::Thread hTimerThread6;
base::Thread hTimerThread7;

namespace {

constexpr int64_t RESULT_PAUSE = 60;  // seconds after a result check
constexpr int64_t SHORT_PAUSE = 1;    // seconds between two looks at the clock or at files
constexpr int64_t CHANNEL_RETRY = 2;  // seconds after a failed channel-status query

// What a timer thread keeps between its cycles.
struct CycleState {
  ErrorCheckState errorCheck;
};

void SuperviseCycle(CycleState* /*state*/) {
  TRACE(TRACE_INFO, "send_timer Process Time [ %d ]", static_cast<int>(m_restart_period));
  TovikProc(m_sz_proc_name);
  base::SleepSeconds(m_restart_period);
}

// Both checks report under one name, and every result but 0 counts as a success.
bool TraceOutcome(int result) {
  if (result != 0) {
    TRACE(TRACE_INFO, "errorCheckProc success");
  } else {
    TRACE(TRACE_WARN, "errorCheckProc fail");
  }
  return result != 0;
}

void HangCycle(CycleState* /*state*/) {
  hangCheckProc(m_sz_proc_name);
  TRACE(TRACE_INFO, "send_timer Hang Time [ %d ]", static_cast<int>(m_Hang_Time));
  base::SleepSeconds(HangPause(m_Hang_Time));
}

void ResultCycle(CycleState* /*state*/) {
  if (m_result_type == 0) {
    m_result_type = 1;
    TraceOutcome(resultCheckProc());
    m_result_type = 0;
    base::SleepSeconds(RESULT_PAUSE);
  }
  base::SleepSeconds(SHORT_PAUSE);
}

void ErrorLogCycle(CycleState* state) {
  const time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  if (ErrorCheckDue(local.tm_min, m_errorlog_period, &state->errorCheck)) {
    state->errorCheck.succeeded = TraceOutcome(errorCheckProc()) ? 1 : 0;
  }
  TRACE(TRACE_INFO, "send_timer ErrorCheck Time [ %d ]", static_cast<int>(m_errorlog_period));
  base::SleepSeconds(SHORT_PAUSE);
}

void RecipientCycle(CycleState* /*state*/) {
  const double receiver = NewerBy(ModificationTime(m_receiver_email), m_Receivertime);
  const double reference = NewerBy(ModificationTime(m_reference_email), m_Referencetime);
  const double blind = NewerBy(ModificationTime(m_blind_email), m_Blindtime);
  if (receiver > 0 || reference > 0 || blind > 0) {
    TRACE(TRACE_INFO, "ReceiverDiff [ %lf ] ReferenceDiff [ %lf ] BlindDiff [ %lf ]", receiver, reference,
          blind);
    EMailListFree(*gEmailLists.Get());
    if (GetEMailList(m_receiver_email, m_reference_email, m_blind_email) != 1) {
      TRACE(TRACE_ERROR, "DunraSTT_Aadmin Email Setting");
    }
  } else {
    TRACE(TRACE_WARN, "Diff Over");
  }
  TRACE(TRACE_INFO, "send_timer EmailCheck Time [ %d ]", static_cast<int>(m_errorlog_period));
  base::SleepSeconds(SHORT_PAUSE);
}

void ChannelStatusCycle(CycleState* /*state*/) {
  if (SHM_OPEN() == 1) {
    g_shm_open_flag = 1;
    send_time_proc();
    base::SleepSeconds(m_restart_period);
  } else {
    base::SleepSeconds(CHANNEL_RETRY);
  }
}

// Without memory for its record an engine has not answered.
bool EngineAnswers() {
  try {
    if (SHM_OPEN() != 1) return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  g_shm_open_flag = 1;
  return true;
}

bool Always() {
  return true;
}

// One timer. ready must hold for an enabled one, else the agent does not start.
struct Timer {
  uint32_t id;
  const char* name;
  base::Thread* thread;
  bool (*enabled)();
  bool (*ready)();
  void (*cycle)(CycleState*);
};
// In the order in which the threads are created.
constexpr Timer TIMERS[] = {
    {10, "PROCESS_STATUS_CHECK_TIMER", &hTimerThread1, [] { return m_restart_check != 0; }, Always,
     SuperviseCycle},
    {3000, "HANG_STATUS_CHECK_TIMER", &hTimerThread4, [] { return m_hang_save_flag != 0; }, Always,
     HangCycle},
    {4000, "RESULT_CHECK_TIMER", &hTimerThread5, [] { return m_result_check != 0; },
     [] { return IsTimeOfDay(m_result_check_time); }, ResultCycle},
    {5000, "ERROR_CHECK_TIMER", &hTimerThread6, [] { return m_errorlog_period > 0; }, Always, ErrorLogCycle},
    {6000, "EMAIL_CHECK_TIMER", &hTimerThread7, [] { return m_send_email_used != 0; }, Always,
     RecipientCycle},
    {1000, "CH_STATUS_SEND_TIMER", &hTimerThread2, EngineAnswers, Always, ChannelStatusCycle},
};

void IdleCycle(CycleState* /*state*/) {}

void (*CycleOf(uint32_t id))(CycleState*) {
  for (const Timer& timer : TIMERS) {
    if (timer.id == id) return timer.cycle;
  }
  return IdleCycle;
}

// A cycle that memory fails is lost, and no more than that.
void RunCycle(void (*cycle)(CycleState*), CycleState* state) {
  try {
    cycle(state);
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for a timer's cycle");
    base::SleepSeconds(SHORT_PAUSE);
  }
}

int StartTimer(const Timer& timer) {
  auto* id = const_cast<uint32_t*>(&timer.id);
  if (timer.ready() && timer.thread->Start(send_timer, id) == 0) return 1;
  const int error = errno;
  TRACE(TRACE_ERROR, "Create %s send_timer fail..Errcode [ %d ]", timer.name, error);
  return -1;
}

}  // namespace

int StartManageThread() {
  static uint32_t gDwThrdID = 0;
  if (hManageThread.Start(send_svc_manage_thread, &gDwThrdID) == 0) return 1;
  const int error = errno;
  TRACE(TRACE_ERROR, "Create send_svc_manage_thread fail..Errcode [ %d ]", error);
  return -1;
}

int StartTimerThreads() {
  for (const Timer& timer : TIMERS) {
    const bool enabled = timer.enabled();
    // A stop that came meanwhile has cut what enabled waits for: it must not begin anew on a thread.
    if (base::StopSignalPending()) break;
    if (enabled && StartTimer(timer) != 1) return -1;
  }
  return 1;
}

void* send_timer(void* argument) {
  auto* const cycle = CycleOf(*static_cast<const uint32_t*>(argument));
  CycleState state;
  while (gSvcManageThrdExit != 1) RunCycle(cycle, &state);
  return reinterpret_cast<void*>(1);
}

void send_time_proc() {
  if (g_shm_open_flag != 0) send_request(REQUEST_CHANNEL_STATUS, CODE_CHANNEL_STATUS);
}
