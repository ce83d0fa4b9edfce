#include "sysinfo/process_status.h"

#include <gtest/gtest.h>

#include <string>

namespace sysinfo {
namespace {

std::string Stat(const std::string& name, const std::string& state, const std::string& threads) {
  return "4711 (" + name + ") " + state + " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 " + threads + " 0 99 0\n";
}

TEST(ProcessState, TellsTheDeadFromTheLiving) {
  const std::pair<std::string, bool> cases[] = {
      {Stat("stt", "Z", "1"), true},
      {Stat("stt", "X", "1"), true},
      {Stat("stt", "S", "1"), false},
      {Stat("Z) Z", "R", "1"), false},
      {Stat("a) S 1", "Z", "1"), true},
      {Stat("stt", "Z", "7"), false},  // its first thread has ended, the others work
      {"", false},
      {"1 (x)", false},
      {"1 (x) ", false},
      {"1 (x) Z", true}};
  for (const auto& [text, dead] : cases) EXPECT_EQ(TellsZombie(text), dead) << text;
}

}  // namespace
}  // namespace sysinfo
