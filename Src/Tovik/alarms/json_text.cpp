#include "Tovik/alarms/json_text.h"

#include <cstdint>

#include "base/format.h"
#include "charset/repair.h"

namespace alarms {
namespace {

constexpr std::string_view PLAIN = "\"\\\t\r\b\f";
constexpr std::string_view LETTERS = "\"\\trbf";

// The escaped form of a byte. It is short, so std::string allocates nothing for it.
std::string Form(char c, std::string_view newline) {
  if (c == '\n') return std::string(newline);
  if (const size_t at = PLAIN.find(c); at != std::string_view::npos) return {'\\', LETTERS[at]};
  if (static_cast<uint8_t>(c) < ' ') return base::Format("\\u%04x", static_cast<unsigned>(c));
  return {c};
}

}  // namespace

std::string JsonText(std::string_view text, std::string_view newline) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) out += Form(c, newline);
  return out;
}

std::string_view JsonPrefix(std::string_view text, size_t limit, std::string_view newline) {
  size_t size = 0;
  size_t taken = 0;
  while (taken < text.size()) {
    size += Form(text[taken], newline).size();
    if (size > limit) break;
    ++taken;
  }
  return charset::Utf8Prefix(text, taken);
}

}  // namespace alarms
