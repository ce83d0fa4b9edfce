#ifndef TOVIK_EXIT_FLAG_H
#define TOVIK_EXIT_FLAG_H

#include <atomic>
#include <cstdint>

// Set to 1 by the stop: the management thread and the timer threads leave their loops.
inline std::atomic<uint8_t> gSvcManageThrdExit{0};

#endif
