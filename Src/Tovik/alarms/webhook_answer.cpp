#include "Tovik/alarms/webhook_answer.h"

#include "charset/repair.h"

namespace alarms {
namespace {

constexpr size_t SHOWN = 300;

}  // namespace

std::string Denial(long status, std::string_view body, std::string_view expected) {
  const std::string words = charset::OneLine(body, SHOWN);
  const bool taken = status < 300 && (expected.empty() || words == expected);
  if (taken) return {};
  return std::to_string(status) + ": " + (words.empty() ? "no words" : words);
}

}  // namespace alarms
