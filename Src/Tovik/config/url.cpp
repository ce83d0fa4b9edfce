#include "Tovik/config/url.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/number.h"

namespace {

constexpr size_t LONGEST_MAIL_URL = 300;  // a name has at most 253 characters
constexpr size_t LONG_URL_PART = 8;       // of a URL, by which it might be known
constexpr std::string_view IN_PORTS = "0123456789";
constexpr std::string_view IN_HOSTS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
constexpr std::string_view IN_IPV6 = "abcdefABCDEF0123456789:.";

// Drops a beginning that equals this one, in either case.
bool Drop(std::string_view* url, std::string_view beginning) {
  if (url->size() < beginning.size() || ::strncasecmp(url->data(), beginning.data(), beginning.size()) != 0)
    return false;
  url->remove_prefix(beginning.size());
  return true;
}

// Drops one and more of these characters.
bool DropAny(std::string_view* url, std::string_view characters) {
  const size_t length = std::min(url->find_first_not_of(characters), url->size());
  url->remove_prefix(length);
  return length > 0;
}

bool DropHost(std::string_view* url) {
  if (Drop(url, "[")) return DropAny(url, IN_IPV6) && Drop(url, "]");
  return !url->starts_with('-') && !url->starts_with('.') && DropAny(url, IN_HOSTS);
}

bool DropPort(std::string_view* url) {
  const int64_t port = base::LeadingNumber(*url);
  return DropAny(url, IN_PORTS) && port >= 1 && port <= 65535;
}

}  // namespace

UrlParts SplitUrl(std::string_view url) {
  UrlParts urlParts;
  if (const size_t end = url.find("://"); end != std::string_view::npos) {
    urlParts.scheme = url.substr(0, end);
    urlParts.prefix = url.substr(0, end + 3);
    url.remove_prefix(urlParts.prefix.size());
  }
  urlParts.server = url.substr(0, url.find_first_of("/?#\\"));
  urlParts.rest = url.substr(urlParts.server.size());
  if (const size_t at = urlParts.server.rfind('@'); at != std::string_view::npos) {
    urlParts.user = urlParts.server.substr(0, at);
    urlParts.server.remove_prefix(at + 1);
  }
  const std::string_view server = urlParts.server;
  urlParts.host = server.substr(0, server.starts_with('[') ? server.find(']') + 1 : server.find(':'));
  return urlParts;
}

std::string UrlWithoutPath(std::string_view url) {
  const UrlParts urlParts = SplitUrl(url);
  return std::string(urlParts.prefix).append(urlParts.server);
}

std::vector<std::string> UrlSecrets(std::string_view url) {
  const UrlParts urlParts = SplitUrl(url);
  std::vector<std::string> urlSecrets;
  if (!urlParts.user.empty()) urlSecrets.emplace_back(urlParts.user);
  std::string_view urlRest = urlParts.rest.substr(urlParts.rest.empty() ? 0 : 1);
  if (!urlRest.empty()) urlSecrets.emplace_back(urlRest);
  while (!urlRest.empty()) {
    const std::string_view urlPart = urlRest.substr(0, urlRest.find_first_of("/?#&=\\"));
    if (urlPart.size() >= LONG_URL_PART) urlSecrets.emplace_back(urlPart);
    urlRest.remove_prefix(std::min(urlPart.size() + 1, urlRest.size()));
  }
  return urlSecrets;
}

bool UsableMailUrl(const std::string& value) {
  std::string_view url = value;
  if (url.size() > LONGEST_MAIL_URL) return false;
  if (!Drop(&url, "smtp://") && !Drop(&url, "smtps://")) return false;
  if (!DropHost(&url)) return false;
  if (Drop(&url, ":") && !DropPort(&url)) return false;
  Drop(&url, "/");
  return url.empty();
}
