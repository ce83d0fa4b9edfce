// Texts inside the quotes of JSON (RFC 8259). The texts are well-formed UTF-8. newline is what a newline
// becomes.
#ifndef TOVIK_ALARMS_JSON_TEXT_H
#define TOVIK_ALARMS_JSON_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace alarms {

std::string JsonText(std::string_view text, std::string_view newline);

// The longest beginning, whole characters only, that takes at most limit bytes as JsonText.
std::string_view JsonPrefix(std::string_view text, size_t limit, std::string_view newline);

}  // namespace alarms

#endif
