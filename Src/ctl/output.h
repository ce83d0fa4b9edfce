// What the tool prints: text for people, JSON for programs.
#ifndef CTL_OUTPUT_H
#define CTL_OUTPUT_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace ctl {

// Writes UTF-8 to standard output; on a terminal whose character set is another, in that one, with "?" for
// what it lacks.
void Print(std::string_view text);
// "dunrasttctl: TEXT" on standard error, one line. Lost when nobody reads there, or not for a tenth of a
// second: the caller goes on.
void Complain(std::string_view text);

enum class Colour { RED, YELLOW, GREEN, GREY };
// The text, coloured when standard output is a terminal and NO_COLOR is unset or empty.
std::string Paint(Colour colour, std::string_view text);

// An object that begins with "schema": 1. Every --json prints one: fields are added, none goes, null is not
// known.
nlohmann::ordered_json JsonObject();
// One line of JSON, bad UTF-8 replaced.
std::string JsonText(const nlohmann::ordered_json& json);
// JsonText and a line end to standard output.
void PrintJson(const nlohmann::ordered_json& json);

}  // namespace ctl

#endif
