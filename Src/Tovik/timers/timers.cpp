#include "Tovik/timers/timers.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <new>

#include "Tovik/checks/channel_check.h"
#include "Tovik/checks/error_log_check.h"
#include "Tovik/checks/hang_check.h"
#include "Tovik/checks/process_check.h"
#include "Tovik/checks/recipients_check.h"
#include "Tovik/checks/result_check.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/exit_flag.h"
#include "Tovik/trace.h"
#include "base/stop.h"
#include "base/thread.h"

namespace {

constexpr int64_t PAUSE_WITHOUT_MEMORY = 1;  // seconds

bool Always() {
  return true;
}

// One timer. ready must hold for an enabled one, else the agent does not start.
struct Timer {
  uint32_t id;
  const char* name;
  bool (*enabled)();
  bool (*ready)();
  void (*cycle)();
};
// In the order in which the threads are created.
constexpr Timer TIMERS[] = {
    {10, "PROCESS_STATUS_CHECK_TIMER", [] { return m_restart_check != 0; }, Always, ProcessCycle},
    {3000, "HANG_STATUS_CHECK_TIMER", [] { return m_hang_save_flag != 0; }, Always, HangCycle},
    {4000, "RESULT_CHECK_TIMER", [] { return m_result_check != 0; },
     [] { return IsTimeOfDay(m_result_check_time); }, ResultCycle},
    {5000, "ERROR_CHECK_TIMER", [] { return m_errorlog_period > 0; }, Always, ErrorLogCycle},
    {6000, "EMAIL_CHECK_TIMER", [] { return m_send_email_used != 0; }, Always, RecipientsCycle},
    {1000, "CH_STATUS_SEND_TIMER", [] { return g_shm_open_flag != 0; }, Always, ChannelCycle},
};
std::array<base::Thread, std::size(TIMERS)> threads;

void IdleCycle() {}

void (*CycleOf(uint32_t id))() {
  for (const Timer& timer : TIMERS) {
    if (timer.id == id) return timer.cycle;
  }
  return IdleCycle;
}

// A cycle that memory fails is lost, and no more than that.
void RunCycle(void (*cycle)()) {
  try {
    cycle();
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for a timer's cycle");
    base::SleepSeconds(PAUSE_WITHOUT_MEMORY);
  }
}

bool StartTimer(const Timer& timer, base::Thread& thread) {
  auto* const id = const_cast<uint32_t*>(&timer.id);
  if (timer.ready() && thread.Start(send_timer, id) == 0) return true;
  const int error = errno;
  TRACE(TRACE_ERROR, "Create %s send_timer fail..Errcode [ %d ]", timer.name, error);
  return false;
}

}  // namespace

bool StartTimerThreads() {
  for (size_t i = 0; i < threads.size(); ++i) {
    // What a stop cuts must not begin anew on a thread.
    if (base::StopSignalPending()) break;
    if (threads[i].Started() || !TIMERS[i].enabled()) continue;
    if (!StartTimer(TIMERS[i], threads[i])) return false;
  }
  return true;
}

void JoinTimerThreads() {
  for (base::Thread& thread : threads) thread.Join();
}

void* send_timer(void* argument) {
  auto* const cycle = CycleOf(*static_cast<const uint32_t*>(argument));
  while (gSvcManageThrdExit != 1) RunCycle(cycle);
  return reinterpret_cast<void*>(1);
}
