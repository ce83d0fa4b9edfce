// The memory that the torture shim and its test share: which call of the agent is to fail.
#ifndef TESTS_SYSTEM_TORTURE_H
#define TESTS_SYSTEM_TORTURE_H

#include <atomic>
#include <cstdint>

// In a file named by TORTURE_CONTROL.
struct TortureControl {
  std::atomic<int64_t> armed;  // not 0: calls are counted
  std::atomic<int64_t> count;
  std::atomic<int64_t> fail_at;  // the call that fails, from 1; 0: none
  std::atomic<int64_t> failed;   // how many did
  std::atomic<int64_t> live;     // blocks of memory that are not freed
  char name[32];                 // of the function that failed last
};

// Where the shim is part of a test's program, set by the test; else by the shim itself.
[[gnu::visibility("hidden")]] extern TortureControl* tortureControl;

#endif
