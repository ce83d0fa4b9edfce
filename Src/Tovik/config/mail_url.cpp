#include "Tovik/config/mail_url.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/number.h"

namespace {

constexpr size_t LONGEST = 300;  // a name has at most 253 characters
constexpr std::string_view DIGITS = "0123456789";
constexpr std::string_view IN_NAMES = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
constexpr std::string_view IN_BRACKETS = "abcdefABCDEF0123456789:.";

// Drops a beginning that equals this one, in either case.
bool Drop(std::string_view* text, std::string_view beginning) {
  if (text->size() < beginning.size() || ::strncasecmp(text->data(), beginning.data(), beginning.size()) != 0)
    return false;
  text->remove_prefix(beginning.size());
  return true;
}

// Drops one and more of these characters.
bool DropAny(std::string_view* text, std::string_view characters) {
  const size_t length = std::min(text->find_first_not_of(characters), text->size());
  text->remove_prefix(length);
  return length > 0;
}

bool DropHost(std::string_view* text) {
  if (Drop(text, "[")) return DropAny(text, IN_BRACKETS) && Drop(text, "]");
  return !text->starts_with('-') && !text->starts_with('.') && DropAny(text, IN_NAMES);
}

bool DropPort(std::string_view* text) {
  const int64_t port = base::LeadingNumber(*text);
  return DropAny(text, DIGITS) && port >= 1 && port <= 65535;
}

}  // namespace

bool UsableMailUrl(const std::string& value) {
  std::string_view text = value;
  if (text.size() > LONGEST) return false;
  if (!Drop(&text, "smtp://") && !Drop(&text, "smtps://")) return false;
  if (!DropHost(&text)) return false;
  if (Drop(&text, ":") && !DropPort(&text)) return false;
  Drop(&text, "/");
  return text.empty();
}
