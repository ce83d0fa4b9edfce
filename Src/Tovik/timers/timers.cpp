#include "Tovik/timers/timers.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <new>

#include "Tovik/alarms/recipients_reload.h"
#include "Tovik/checks/channel_check.h"
#include "Tovik/checks/error_log_check.h"
#include "Tovik/checks/hang_check.h"
#include "Tovik/checks/process_check.h"
#include "Tovik/checks/result_check.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/exit_flag.h"
#include "Tovik/process/service_manager.h"
#include "Tovik/process/start_notices.h"
#include "Tovik/timers/timer_budgets.h"
#include "Tovik/trace.h"
#include "base/steady_time.h"
#include "base/stoppable_wait.h"
#include "base/thread.h"

namespace {

constexpr int64_t TIMER_MEMORY_PAUSE = 1;  // seconds

bool AlwaysReady() {
  return true;
}

// One timer. If an enabled timer is not ready, the agent does not start.
struct Timer {
  uint32_t id;
  const char* name;
  bool (*enabled)();
  bool (*ready)();
  void (*cycle)();
};
// The threads are created in this order.
constexpr Timer TIMERS[] = {
    {10, "PROCESS_STATUS_CHECK_TIMER", [] { return m_restart_check != 0; }, AlwaysReady, ProcessCycle},
    {3000, "HANG_STATUS_CHECK_TIMER", [] { return m_hang_save_flag != 0; }, AlwaysReady, HangCycle},
    {4000, "RESULT_CHECK_TIMER", [] { return m_result_check != 0; },
     [] { return IsResultTime(m_result_check_time); }, ResultCycle},
    {5000, "ERROR_CHECK_TIMER", [] { return m_errorlog_period > 0; }, AlwaysReady, ErrorLogCycle},
    {6000, "EMAIL_CHECK_TIMER", [] { return m_send_email_used != 0; }, AlwaysReady, RecipientsCycle},
    {1000, "CH_STATUS_SEND_TIMER", ChannelsAreWatched, AlwaysReady, ChannelCycle},
};
std::array<base::Thread, std::size(TIMERS)> timerThreads;
// When the cycle under way began; 0 before the first.
std::array<std::atomic<int64_t>, std::size(TIMERS)> timerCycleBegan;

// Of a timer; size() of the table for an id that is none.
size_t TimerIndex(uint32_t timer_id) {
  const auto* const timer_row = std::find_if(std::begin(TIMERS), std::end(TIMERS),
                                             [timer_id](const Timer& timer) { return timer.id == timer_id; });
  return static_cast<size_t>(timer_row - std::begin(TIMERS));
}

// Without memory one cycle is lost, and nothing else.
void RunTimerCycle(void (*timer_cycle)()) {
  try {
    timer_cycle();
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for a timer's cycle");
    base::SleepSeconds(TIMER_MEMORY_PAUSE);
  }
}

bool StartTimer(const Timer& timer, base::Thread& timer_thread) {
  auto* const timer_id = const_cast<uint32_t*>(&timer.id);
  const bool timer_ready = timer.ready();
  if (timer_ready && timer_thread.Start(send_timer, timer_id) == 0) return true;
  const int timer_error = errno;
  if (timer_ready) {
    TellNoStart("a thread", timer_error);
  } else {
    TellNoTimeOfDay();  // the only thing that a timer may lack
  }
  TRACE(TRACE_ERROR, "Create %s send_timer fail..Errcode [ %d ]", timer.name, timer_error);
  return false;
}

}  // namespace

bool StartTimerThreads() {
  for (size_t i = 0; i < timerThreads.size(); ++i) {
    // A thread must not start again what a stop has just cut.
    if (base::StopSignalPending()) break;
    if (timerThreads[i].Started() || !TIMERS[i].enabled()) continue;
    if (!StartTimer(TIMERS[i], timerThreads[i])) return false;
  }
  return true;
}

void JoinTimerThreads() {
  for (base::Thread& timer_thread : timerThreads) timer_thread.Join();
}

const char* StuckTimer() {
  for (size_t i = 0; i < std::size(TIMERS); ++i) {
    const int64_t timer_began = timerCycleBegan[i];
    // The second is for the rounding of both ends.
    const int64_t timer_limit = CycleBudget(TIMERS[i].id, ManagerPatienceSeconds()) + 1;
    if (timer_began != 0 && base::SteadySeconds() - timer_began > timer_limit) return TIMERS[i].name;
  }
  return nullptr;
}

void* send_timer(void* timer_id) {
  const size_t timer = TimerIndex(*static_cast<const uint32_t*>(timer_id));
  while (gSvcManageThrdExit != 1) {
    if (timer == std::size(TIMERS)) continue;
    timerCycleBegan[timer] = base::SteadySeconds();
    RunTimerCycle(TIMERS[timer].cycle);
  }
  return reinterpret_cast<void*>(1);
}
