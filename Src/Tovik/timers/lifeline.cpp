#include "Tovik/timers/lifeline.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>

#include "Tovik/checks/engine_state.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/process/service_manager.h"
#include "Tovik/process/start_notices.h"
#include "Tovik/timers/timers.h"
#include "Tovik/trace.h"
#include "base/stoppable_wait.h"
#include "base/thread.h"

namespace {

constexpr int64_t LONGEST_PAUSE_MS = 1000;
constexpr int64_t SIGNS_IN_TIME = 2;  // of life, where one is asked for
constexpr int64_t LOOKS_IN_TIME = 4;

base::Thread thread;

std::string StatusWords(const char* stuck) {
  if (stuck != nullptr) return std::string("Hangs: ") + stuck + " has not moved for too long";
  return EngineStateWords(engineState, engineHangsInARow, g_shm_open_flag != 0);
}

// Tells what has changed since the last call. For one thread at a time.
void TellStatus(const char* stuck) {
  static std::string told;
  const std::string words = StatusWords(stuck);
  if (words == told) return;
  told = words;
  TellServiceManager("STATUS=" + words);
}

int64_t NowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// For one thread.
void TellLife(const char* stuck) {
  static int64_t due = 0;
  static bool traced = false;
  if (WatchdogMilliseconds() == 0) return;
  if (stuck != nullptr) {
    if (!traced)
      TRACE(TRACE_ERROR, "%s has not moved for too long: the service manager hears no more", stuck);
    traced = true;
    return;
  }
  traced = false;
  if (NowMs() < due) return;
  TellServiceManager("WATCHDOG=1");
  due = NowMs() + WatchdogMilliseconds() / SIGNS_IN_TIME;
}

void* KeepTelling(void* /*argument*/) {
  const int64_t period = WatchdogMilliseconds();
  const int64_t asked = std::max<int64_t>(period / LOOKS_IN_TIME, 1);
  const int64_t pause = period == 0 ? LONGEST_PAUSE_MS : std::min(asked, LONGEST_PAUSE_MS);
  do {
    const char* const stuck = StuckTimer();
    TellStatus(stuck);
    TellLife(stuck);
  } while (base::SleepMilliseconds(pause));
  return nullptr;
}

}  // namespace

bool StartLifeline() {
  if (!HasServiceManager()) return true;
  TellServiceManager("READY=1");
  if (thread.Start(KeepTelling, nullptr) == 0) return true;
  const int error = errno;
  TellNoStart("a thread", error);
  TRACE(TRACE_ERROR, "Create lifeline thread fail..Errcode [ %d ]", error);
  return false;
}

void JoinLifeline() {
  thread.Join();
}
