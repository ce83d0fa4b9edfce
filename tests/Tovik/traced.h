// What a call traces.
#ifndef TESTS_TOVIK_TRACED_H
#define TESTS_TOVIK_TRACED_H

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <vector>

#include "Tovik/config/config.h"
#include "support/has.h"
#include "support/support.h"
#include "utils/trace_log.h"

namespace test {

// The standard output of a call, trace lines of every level included.
template <typename Call>
std::string TraceOf(Call call) {
  DunraSTTUtils::SetLogLevel(TRACE_TRACE);
  testing::internal::CaptureStdout();
  call();
  std::fflush(stdout);
  DunraSTTUtils::SetLogLevel(0);
  return testing::internal::GetCapturedStdout();
}

using Lines = std::vector<std::string>;

// The messages that a call traces, each with its level: "ERROR [INIT] ...".
template <typename Call>
Lines MessagesOf(Call call) {
  static const std::regex LINE(R"(\[[^\]]*\]\[([A-Z]+)\]\[[^\]]*\]\[[^\]]*\] : \[(.*)\])");
  Lines messages;
  std::istringstream lines(TraceOf(call));
  std::smatch parts;
  for (std::string line; std::getline(lines, line);) {
    if (std::regex_match(line, parts, LINE)) messages.push_back(parts.str(1) + " " + parts.str(2));
  }
  return messages;
}

}  // namespace test

#endif
