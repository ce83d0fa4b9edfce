#include "Tovik/timers/lifeline.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>

#include "Tovik/checks/engine_state.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/process/service_manager.h"
#include "Tovik/process/start_notices.h"
#include "Tovik/timers/timers.h"
#include "Tovik/trace.h"
#include "base/steady_time.h"
#include "base/stoppable_wait.h"
#include "base/thread.h"

namespace {

constexpr int64_t LONGEST_LIFELINE_PAUSE_MS = 1000;
constexpr int64_t LIFELINE_SIGNS_IN_TIME = 2;  // where they are asked for
constexpr int64_t LIFELINE_LOOKS_IN_TIME = 4;

base::Thread lifelineThread;

std::string LifelineStatus(const char* stuck) {
  if (stuck != nullptr) return std::string("Hangs: ") + stuck + " has not moved for too long";
  return EngineStateWords(engineState, engineHangsInARow, g_shm_open_flag != 0);
}

// Tells what has changed since the last call. For one thread at a time.
void TellLifelineStatus(const char* stuck) {
  static std::string told_lifeline;
  const std::string lifeline = LifelineStatus(stuck);
  if (lifeline == told_lifeline) return;
  told_lifeline = lifeline;
  TellServiceManager("STATUS=" + lifeline);
}

// For one thread.
void TellSignOfLife(const char* stuck) {
  static int64_t lifeline_due = 0;
  static bool stuck_traced = false;
  if (ManagerWatchdogMilliseconds() == 0) return;
  if (stuck != nullptr) {
    if (!stuck_traced)
      TRACE(TRACE_ERROR, "%s has not moved for too long: the service manager hears no more", stuck);
    stuck_traced = true;
    return;
  }
  stuck_traced = false;
  if (base::SteadyMilliseconds() < lifeline_due) return;
  TellServiceManager("WATCHDOG=1");
  lifeline_due = base::SteadyMilliseconds() + ManagerWatchdogMilliseconds() / LIFELINE_SIGNS_IN_TIME;
}

void* KeepLifeline(void* /*argument*/) {
  const int64_t lifeline_watchdog_ms = ManagerWatchdogMilliseconds();
  const int64_t watchdog_pause = std::max<int64_t>(lifeline_watchdog_ms / LIFELINE_LOOKS_IN_TIME, 1);
  const int64_t lifeline_pause = lifeline_watchdog_ms == 0
                                     ? LONGEST_LIFELINE_PAUSE_MS
                                     : std::min(watchdog_pause, LONGEST_LIFELINE_PAUSE_MS);
  do {
    const char* const stuck = StuckTimer();
    TellLifelineStatus(stuck);
    TellSignOfLife(stuck);
  } while (base::SleepMilliseconds(lifeline_pause));
  return nullptr;
}

}  // namespace

bool StartLifeline() {
  if (!HasServiceManager()) return true;
  TellServiceManager("READY=1");
  if (lifelineThread.Start(KeepLifeline, nullptr) == 0) return true;
  const int lifeline_error = errno;
  TellNoStart("a thread", lifeline_error);
  TRACE(TRACE_ERROR, "Create lifeline thread fail..Errcode [ %d ]", lifeline_error);
  return false;
}

void JoinLifeline() {
  lifelineThread.Join();
}
