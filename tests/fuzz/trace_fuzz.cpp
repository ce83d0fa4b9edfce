// The conversion of a message for the trace.
#include "fuzz/fuzz.h"
#include "utils/trace_line.h"

FUZZ_TARGET(bytes) {
  const std::string text = bytes.c_str();
  std::string converted;
  fuzz::Quickly(text, [&] { converted = trace::ToUtf8(text.c_str()); });
  HOLDS(converted.size() <= text.size() / 2 * 3 + 3);

  static char buffer[trace::LINE_SIZE];
  trace::Text line(buffer);
  trace::BeginOrdinaryLine(&line, trace::SecondOf({}), 0, 9, 7, {"file", "function", 1});
  const size_t head = line.Size();
  line.Add(converted).Add("]\n");
  HOLDS(line.Size() == std::min(head + converted.size() + 2, sizeof buffer - 1));
  HOLDS(!trace::IsPlain(text) || (converted == text && trace::AsPrintFormat(text) == text));

  // The expansion halves each doubled percent sign and changes nothing else.
  std::string doubled;
  for (const char c : text) doubled += c == '%' ? "%%" : std::string(1, c);
  HOLDS(trace::AsPrintFormat(doubled) == text);
}
