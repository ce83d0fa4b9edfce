#include "Tovik/config/url.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/number.h"

namespace {

constexpr size_t LONGEST_MAIL_URL = 300;  // a name has at most 253 characters
constexpr size_t LONG_PART = 8;           // of a URL, by which it might be known
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

UrlParts SplitUrl(std::string_view url) {
  UrlParts parts;
  if (const size_t end = url.find("://"); end != std::string_view::npos) {
    parts.scheme = url.substr(0, end);
    parts.prefix = url.substr(0, end + 3);
    url.remove_prefix(parts.prefix.size());
  }
  parts.server = url.substr(0, url.find_first_of("/?#\\"));
  parts.rest = url.substr(parts.server.size());
  if (const size_t at = parts.server.rfind('@'); at != std::string_view::npos) {
    parts.user = parts.server.substr(0, at);
    parts.server.remove_prefix(at + 1);
  }
  const std::string_view server = parts.server;
  parts.host = server.substr(0, server.starts_with('[') ? server.find(']') + 1 : server.find(':'));
  return parts;
}

std::string UrlWithoutPath(std::string_view url) {
  const UrlParts parts = SplitUrl(url);
  return std::string(parts.prefix).append(parts.server);
}

std::vector<std::string> UrlSecrets(std::string_view url) {
  const UrlParts parts = SplitUrl(url);
  std::vector<std::string> secrets;
  if (!parts.user.empty()) secrets.emplace_back(parts.user);
  std::string_view rest = parts.rest.substr(parts.rest.empty() ? 0 : 1);
  if (!rest.empty()) secrets.emplace_back(rest);
  while (!rest.empty()) {
    const std::string_view part = rest.substr(0, rest.find_first_of("/?#&=\\"));
    if (part.size() >= LONG_PART) secrets.emplace_back(part);
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
  }
  return secrets;
}

bool UsableMailUrl(const std::string& value) {
  std::string_view text = value;
  if (text.size() > LONGEST_MAIL_URL) return false;
  if (!Drop(&text, "smtp://") && !Drop(&text, "smtps://")) return false;
  if (!DropHost(&text)) return false;
  if (Drop(&text, ":") && !DropPort(&text)) return false;
  Drop(&text, "/");
  return text.empty();
}
