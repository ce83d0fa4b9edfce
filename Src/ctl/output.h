// What the tool prints: text for people, JSON for programs.
#ifndef CTL_OUTPUT_H
#define CTL_OUTPUT_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace ctl {

// Writes UTF-8 text to standard output. On a terminal with another character set it is converted, with "?"
// for characters that the set lacks.
void Print(std::string_view text);
// Writes the line "dunrasttctl: TEXT" to standard error. The line is lost when nobody reads there within a
// tenth of a second; the caller goes on.
void Complain(std::string_view text);

enum class Colour { RED, YELLOW, GREEN, GREY };
// The text, coloured when standard output is a terminal and NO_COLOR is unset or empty.
std::string Paint(Colour colour, std::string_view text);

// A new object that begins with "schema": 1. Every --json prints one. Releases may add fields but never
// remove one; null means not known.
nlohmann::ordered_json JsonObject();
// One line of JSON, bad UTF-8 replaced.
std::string JsonText(const nlohmann::ordered_json& json);
// Writes JsonText and a line end to standard output.
void PrintJson(const nlohmann::ordered_json& json);

}  // namespace ctl

#endif
