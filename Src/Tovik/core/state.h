// Figures and flags that the agent's threads share without locks: the last writer wins and a reader takes
// what is there when it looks.
#ifndef TOVIK_CORE_STATE_H
#define TOVIK_CORE_STATE_H

#include <atomic>
#include <cstdint>
#include <ctime>

// Set by the stop: the management thread and the timer threads leave their loops.
extern std::atomic<uint8_t> gSvcManageThrdExit;
// 1 once the engine's channel-status query has connected; never cleared.
extern std::atomic<uint8_t> g_shm_open_flag;
// 1 while a result check runs.
extern std::atomic<uint8_t> m_result_type;

// No figure: suppresses the CPU report and check.
inline constexpr int32_t NO_CPU_USAGE = -999;
extern std::atomic<int32_t> gCpuUsage;  // percent of the host
extern std::atomic<int32_t> gMemUsage;  // engine's MB over the host's kB, times 100
extern std::atomic<uint64_t> gChUsage;  // percent of the engine's channels in use
extern std::atomic<int32_t> m_pid;      // from the engine's PID file, for the trace only
extern time_t m_Receivertime;  // modification times of the recipient files at start-up, 0 when missing
extern time_t m_Referencetime;
extern time_t m_Blindtime;

#endif
