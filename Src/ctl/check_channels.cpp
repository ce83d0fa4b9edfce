// Rules on the channels of an alarm: management servers, mail, chat.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "Tovik/config/config.h"
#include "Tovik/config/url.h"
#include "base/unique_handles.h"
#include "charset/cp949.h"
#include "ctl/check_rules.h"

namespace ctl {
namespace {

constexpr int64_t LAST_PORT = 65535;
constexpr int64_t LAST_LOGIN = 3;  // of SMTP_AUTH: 1 none, 2 PLAIN, 3 LOGIN
constexpr std::string_view LINE_BYTES = "\r\n";

std::span<const ServerLine> Served(const Facts& facts) {
  return std::span(facts.servers).first(std::min<size_t>(facts.servers.size(), MAX_SERVERS));
}

// True for a dotted IPv4 address, which is all that the agent takes: it looks up no names here.
bool Dotted(const std::string& address) {
  in_addr figures{};
  return ::inet_aton(address.c_str(), &figures) != 0;
}

// True for a text that is missing or only a line end.
bool Empty(const std::string& text) {
  return text.find_first_not_of(LINE_BYTES) == std::string::npos;
}

bool ThisHost(std::string_view name) {
  return name.empty() || name == "localhost" || name == "::1" || name == "[::1]" || name.starts_with("127.");
}

bool PlainMail(const Facts& facts) {
  return facts.Mails() && !facts.ByUrl();
}

size_t LineOf(const Facts& facts, std::string_view key) {
  return facts.Of(key).line;
}

void NobodyTold(const Facts& facts, Hits* hits) {
  if (!facts.Mails() && !facts.Posts() && facts.servers.empty()) hits->Add(0, "", {});
}

void ServerAddresses(const Facts& facts, Hits* hits) {
  for (const ServerLine& server : Served(facts)) {
    if (!Dotted(server.address)) hits->Add(server.line, server.key, {server.key, server.value});
  }
}

void ServerPorts(const Facts& facts, Hits* hits) {
  for (const ServerLine& server : Served(facts)) {
    if (server.port <= 0 || server.port > LAST_PORT)
      hits->Add(server.line, server.key, {server.key, server.value});
  }
}

void ServersTwice(const Facts& facts, Hits* hits) {
  std::map<std::pair<std::string_view, int64_t>, size_t> lines;
  for (const ServerLine& server : Served(facts)) {
    const auto [earlier, first] =
        lines.emplace(std::pair(std::string_view(server.address), server.port), server.line);
    if (!first)
      hits->Add(server.line, server.key, {server.key, server.value, std::to_string(earlier->second)});
  }
}

void TooManyServers(const Facts& facts, Hits* hits) {
  for (size_t i = MAX_SERVERS; i < facts.servers.size(); ++i)
    hits->Add(facts.servers[i].line, facts.servers[i].key, {facts.servers[i].key});
}

void Login(const Facts& facts, Hits* hits) {
  const int64_t method = facts.Number("SMTP_AUTH");
  if (facts.Mails() && (method < 1 || method > LAST_LOGIN))
    hits->Add(LineOf(facts, "SMTP_AUTH"), "SMTP_AUTH", {std::to_string(method)});
}

void MailPort(const Facts& facts, Hits* hits) {
  if (PlainMail(facts) && Empty(facts.Text("SMTP_SERVER_PORT")))
    hits->Add(LineOf(facts, "SMTP_SERVER_PORT"), "SMTP_SERVER_PORT", {});
}

void MailServerName(const Facts& facts, Hits* hits) {
  const std::string& name = facts.Text("SMTP_SERVER_URL");
  const bool numeric = std::count(name.begin(), name.end(), ':') > 1;  // an IPv6 address
  if (PlainMail(facts) && !numeric && name.find_first_of(":/ ") != std::string::npos)
    hits->Add(LineOf(facts, "SMTP_SERVER_URL"), "SMTP_SERVER_URL", {name.substr(0, name.find('@'))});
}

void Dialogue(const Facts& facts, Hits* hits) {
  const int64_t flags = facts.Number("SMTP_FLAGS");
  if (PlainMail(facts) && flags % 2 != 0)
    hits->Add(LineOf(facts, "SMTP_FLAGS"), "SMTP_FLAGS", {std::to_string(flags)});
}

void Sender(const Facts& facts, Hits* hits) {
  const std::string& address = facts.Text("SENDER_EMAIL");
  const bool bad = std::any_of(address.begin(), address.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= ' ' || byte == 127 || c == '<' || c == '>';
  });
  if (facts.Mails() && bad) hits->Add(LineOf(facts, "SENDER_EMAIL"), "SENDER_EMAIL", {address});
}

void NoSender(const Facts& facts, Hits* hits) {
  if (facts.Mails() && facts.Text("SENDER_EMAIL").empty()) hits->Add(0, "SENDER_EMAIL", {});
}

void SenderName(const Facts& facts, Hits* hits) {
  const std::string& name = facts.Text("SENDER_NAME");
  const bool bad = std::any_of(name.begin(), name.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < ' ' || byte == 127 || c == '"';
  });
  if (PlainMail(facts) && bad) hits->Add(LineOf(facts, "SENDER_NAME"), "SENDER_NAME", {name});
}

bool Converts(const std::string& text) {
  char* result = nullptr;
  uint32_t length = 0;
  if (encode_UTF8(text.c_str(), static_cast<uint32_t>(text.size()), &result, &length) != 0) return false;
  const base::UniqueText owned(result);
  return true;
}

// The engine's name stands in the text of every alarm, so it must convert to UTF-8.
void NameThatDoesNotConvert(const Facts& facts, Hits* hits) {
  const std::string& name = facts.Text("PROC_NAME");
  if (facts.Number("TEXT_REPAIR") == 0 && (facts.Mails() || facts.Posts()) && !Converts(name))
    hits->Add(LineOf(facts, "PROC_NAME"), "PROC_NAME", {name});
}

bool Same(std::string_view one, const char* other) {
  return one.size() == std::strlen(other) && ::strncasecmp(one.data(), other, one.size()) == 0;
}

// With MAIL_TLS 1 the server, or whoever stands before it, decides.
void PasswordInTheClear(const Facts& facts, Hits* hits) {
  const int64_t method = facts.Number("SMTP_AUTH");
  const std::string& url = facts.Text("MAIL_URL");
  const std::string_view host =
      facts.ByUrl() ? SplitUrl(url).host : std::string_view(facts.Text("SMTP_SERVER_URL"));
  const bool safe = facts.ByUrl() && (Same(SplitUrl(url).scheme, "smtps") || facts.Number("MAIL_TLS") == 2);
  if (!facts.Mails() || method <= 1 || method > LAST_LOGIN || safe || ThisHost(host)) return;
  const bool offered = facts.ByUrl() && facts.Number("MAIL_TLS") == 1;
  hits->Add(
      LineOf(facts, "SMTP_AUTH"), "SMTP_AUTH",
      {std::to_string(method), offered ? "may go" : "go", host, offered ? ": MAIL_TLS 2 prevents that" : ""});
}

void HookAddress(const Facts& facts, Hits* hits) {
  const std::string& url = facts.Text("WEBHOOK_SERVER_URL");
  const std::string_view scheme = SplitUrl(url).scheme;  // the rest is a secret
  const size_t line = LineOf(facts, "WEBHOOK_SERVER_URL");
  if (!facts.Posts()) return;
  if (Empty(url)) {
    hits->Add(line, "WEBHOOK_SERVER_URL", {"is missing"});
  } else if (url.find_first_of(" \t\r\n") != std::string::npos) {
    hits->Add(line, "WEBHOOK_SERVER_URL", {"holds a blank"});
  } else if (!scheme.empty() && !Same(scheme, "http") && !Same(scheme, "https")) {
    hits->Add(line, "WEBHOOK_SERVER_URL", {"begins with " + std::string(scheme) + "://"});
  }
}

void HookInTheClear(const Facts& facts, Hits* hits) {
  const std::string& url = facts.Text("WEBHOOK_SERVER_URL");
  const std::string_view scheme = SplitUrl(url).scheme;
  const std::string_view host = SplitUrl(url).host;
  if (!facts.Posts() || Empty(url) || (!scheme.empty() && !Same(scheme, "http")) || ThisHost(host)) return;
  hits->Add(LineOf(facts, "WEBHOOK_SERVER_URL"), "WEBHOOK_SERVER_URL", {host});
}

constexpr Rule RULES[] = {
    {"nobody-told", Level::ERROR,
     "neither mail nor chat nor a management server is set: no alarm leaves this host", NobodyTold},
    {"server-address", Level::ERROR, "{} {} is no dotted IPv4 address: that server gets no report",
     ServerAddresses},
    {"server-port", Level::ERROR, "{} {} names no port from 1 to 65535: that server gets no report",
     ServerPorts},
    {"server-twice", Level::WARNING, "{} {} stands in line {} too: that server gets each report twice",
     ServersTwice},
    {"server-beyond", Level::ERROR, "{} is beyond the first 100 management servers and gets no report",
     TooManyServers},
    {"mail-login", Level::ERROR, "SMTP_AUTH {} is none of 1 (no login), 2, 3: no mail is sent", Login},
    {"mail-port", Level::ERROR, "SMTP_SERVER_PORT is empty: no mail is sent", MailPort},
    {"mail-server", Level::ERROR,
     "SMTP_SERVER_URL {} is no name or address alone: it is not found, and no mail is sent", MailServerName},
    {"mail-password-clear", Level::WARNING, "SMTP_AUTH {}: user and password {} to {} in the clear{}",
     PasswordInTheClear},
    {"mail-dialogue", Level::WARNING,
     "SMTP_FLAGS {}: each mail and its login go to standard error, which is the journal", Dialogue},
    {"sender-address", Level::ERROR, "SENDER_EMAIL {} holds a blank, \"<\" or \">\": no mail is sent",
     Sender},
    {"sender-missing", Level::WARNING, "SENDER_EMAIL is missing: mails bear no sender, which servers refuse",
     NoSender},
    {"sender-name", Level::ERROR, "SENDER_NAME {} holds a quote or a control character: no mail is sent",
     SenderName},
    {"name-unconvertible", Level::ERROR,
     "PROC_NAME {} does not convert from code page 949: no mail and no post is sent", NameThatDoesNotConvert},
    {"hook-address", Level::ERROR, "WEBHOOK_SERVER_URL {}: no post is sent", HookAddress},
    {"hook-clear", Level::WARNING, "WEBHOOK_SERVER_URL: posts, and the secret address, go to {} in the clear",
     HookInTheClear},
};

}  // namespace

const std::span<const Rule> CHANNEL_RULES = RULES;

}  // namespace ctl
