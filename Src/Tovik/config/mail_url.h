// The value of MAIL_URL.
#ifndef TOVIK_CONFIG_MAIL_URL_H
#define TOVIK_CONFIG_MAIL_URL_H

#include <string>

// Whether it is smtp://host[:port] or smtps://host[:port]: the scheme in either case, a name, an IPv4 address
// or an IPv6 one in brackets, a port of 1 to 65535, at most a "/" behind. A user is none of it: the login has
// keys of its own.
bool UsableMailUrl(const std::string& value);

#endif
