// What becomes of a message on its way into the trace.
#include "fuzz/fuzz.h"
#include "utils/trace_line.h"

FUZZ_TARGET(bytes) {
  const std::string text = bytes.c_str();
  std::string converted;
  fuzz::Quickly(text, [&] { converted = trace::ToUtf8(text.c_str()); });
  HOLDS(converted.size() <= text.size() / 2 * 3 + 3);

  const trace::Moment moment{};
  const trace::Place place{"file", "function", 1};
  const std::string frame = trace::OrdinaryLine(moment, 9, 7, place, "");
  const std::string line = trace::OrdinaryLine(moment, 9, 7, place, converted);
  HOLDS(line.size() == frame.size() + std::min<size_t>(converted.size(), 100'000) && line.ends_with("]\n"));
  const std::string hang = trace::HangLine(moment, converted);
  HOLDS(hang.size() <= trace::HangLine(moment, "").size() + 4'000 && hang.ends_with("]\n"));

  // Doubling every percent sign undoes what the expansion does, and nothing else is touched.
  std::string doubled;
  for (const char c : text) doubled += c == '%' ? "%%" : std::string(1, c);
  HOLDS(trace::AsPrintFormat(doubled) == text);
}
