// Escapes texts that stand inside the quotes of JSON (RFC 8259). They must be well-formed UTF-8. newline is
// what each newline becomes.
#ifndef TOVIK_ALARMS_JSON_TEXT_H
#define TOVIK_ALARMS_JSON_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace alarms {

std::string JsonText(std::string_view text, std::string_view newline);

// The longest beginning of text, in whole characters, whose JsonText has at most limit bytes.
std::string_view JsonPrefix(std::string_view text, size_t limit, std::string_view newline);

}  // namespace alarms

#endif
