#include "Tovik/core/state.h"

std::atomic<uint8_t> gSvcManageThrdExit{0};
std::atomic<uint8_t> g_shm_open_flag{0};
std::atomic<uint8_t> m_result_type{0};

std::atomic<int32_t> gCpuUsage{0};
std::atomic<int32_t> gMemUsage{0};
std::atomic<uint64_t> gChUsage{0};
std::atomic<int32_t> m_pid{0};

time_t m_Receivertime;
time_t m_Referencetime;
time_t m_Blindtime;
