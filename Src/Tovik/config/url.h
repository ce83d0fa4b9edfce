// The URLs of the configuration (MAIL_URL, WEBHOOK_SERVER_URL): their parts, and what of them is not shown.
#ifndef TOVIK_CONFIG_URL_H
#define TOVIK_CONFIG_URL_H

#include <string>
#include <string_view>
#include <vector>

// Views of the text that was split. Parts that are missing are empty.
struct UrlParts {
  std::string_view scheme;  // "https"
  std::string_view prefix;  // it and "://"
  std::string_view user;    // a password too, without the "@"
  std::string_view host;    // an IPv6 address with its brackets
  std::string_view server;  // the host, and a port where one is named
  std::string_view rest;    // path, query, fragment
};
UrlParts SplitUrl(std::string_view url);

// Scheme, host and port: what may be shown of a webhook's address.
std::string UrlWithoutPath(std::string_view url);
// What may not: the user, all behind the server, and each part of that of 8 bytes and more, as a peer may
// repeat only its key.
std::vector<std::string> UrlSecrets(std::string_view url);

// Whether a value of MAIL_URL is smtp://host[:port] or smtps://host[:port]: the scheme in either case, a
// name, an IPv4 address or an IPv6 one in brackets, a port of 1 to 65535, at most a "/" behind. A user is
// none of it: the login has keys of its own.
bool UsableMailUrl(const std::string& value);

#endif
