#include "Tovik/config/url.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/number.h"

namespace {

constexpr size_t LONGEST_MAIL_URL = 300;  // a name has at most 253 characters
constexpr size_t LONG_URL_PART = 8;       // of a URL, by which it might be known
constexpr std::string_view IN_URL_PORTS = "0123456789";
constexpr std::string_view IN_URL_HOSTS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
constexpr std::string_view IN_URL_IPV6 = "abcdefABCDEF0123456789:.";

// Drops a beginning that equals this one, in either case.
bool DropFromUrl(std::string_view* url, std::string_view urlBeginning) {
  if (url->size() < urlBeginning.size() ||
      ::strncasecmp(url->data(), urlBeginning.data(), urlBeginning.size()) != 0)
    return false;
  url->remove_prefix(urlBeginning.size());
  return true;
}

// Drops one and more of these characters.
bool DropUrlCharacters(std::string_view* url, std::string_view characters) {
  const size_t urlCharacters = std::min(url->find_first_not_of(characters), url->size());
  url->remove_prefix(urlCharacters);
  return urlCharacters > 0;
}

bool DropUrlHost(std::string_view* url) {
  if (DropFromUrl(url, "[")) return DropUrlCharacters(url, IN_URL_IPV6) && DropFromUrl(url, "]");
  return !url->starts_with('-') && !url->starts_with('.') && DropUrlCharacters(url, IN_URL_HOSTS);
}

bool DropUrlPort(std::string_view* url) {
  const int64_t urlPort = base::LeadingNumber(*url);
  return DropUrlCharacters(url, IN_URL_PORTS) && urlPort >= 1 && urlPort <= 65535;
}

}  // namespace

UrlParts SplitUrl(std::string_view url) {
  UrlParts urlParts;
  if (const size_t schemeEnd = url.find("://"); schemeEnd != std::string_view::npos) {
    urlParts.scheme = url.substr(0, schemeEnd);
    urlParts.prefix = url.substr(0, schemeEnd + 3);
    url.remove_prefix(urlParts.prefix.size());
  }
  urlParts.server = url.substr(0, url.find_first_of("/?#\\"));
  urlParts.rest = url.substr(urlParts.server.size());
  if (const size_t urlUserEnd = urlParts.server.rfind('@'); urlUserEnd != std::string_view::npos) {
    urlParts.user = urlParts.server.substr(0, urlUserEnd);
    urlParts.server.remove_prefix(urlUserEnd + 1);
  }
  const std::string_view urlServer = urlParts.server;
  urlParts.host =
      urlServer.substr(0, urlServer.starts_with('[') ? urlServer.find(']') + 1 : urlServer.find(':'));
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
  if (!DropFromUrl(&url, "smtp://") && !DropFromUrl(&url, "smtps://")) return false;
  if (!DropUrlHost(&url)) return false;
  if (DropFromUrl(&url, ":") && !DropUrlPort(&url)) return false;
  DropFromUrl(&url, "/");
  return url.empty();
}
