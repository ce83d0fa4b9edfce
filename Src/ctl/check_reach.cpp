#include "ctl/check_reach.h"

#include <curl/curl.h>
#include <netdb.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>

#include "Tovik/config/config.h"
#include "base/resolve.h"
#include "base/stoppable_socket.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr int64_t WAIT_MS = 5000;
constexpr const char* MAIL_SERVICE = "25";
constexpr const char* MAILS_SERVICE = "465";  // of smtps

struct UrlFree {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
struct TextFree {
  void operator()(char* text) const { curl_free(text); }
};

std::string Part(CURLU* url, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return {};
  const std::unique_ptr<char, TextFree> owned(text);
  return text;
}

void AddUrl(const Facts& facts, const char* key, const char* service,
            std::vector<Destination>* destinations) {
  const std::unique_ptr<CURLU, UrlFree> url(curl_url());
  if (url == nullptr || curl_url_set(url.get(), CURLUPART_URL, facts.Text(key).c_str(),
                                     CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    return;
  std::string host = Part(url.get(), CURLUPART_HOST);
  if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
  std::string port = Part(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
  if (port.empty()) port = service;
  destinations->push_back({key, facts.Of(key).line, host, port});
}

// Empty: connected.
std::string Try(const Destination& destination) {
  base::AddressList addresses;
  const int error =
      base::Resolve(destination.host.c_str(), destination.port.c_str(), AF_UNSPEC, IPPROTO_TCP, &addresses);
  if (error != 0) return ::gai_strerror(error);
  std::string failure = "no address";
  for (const addrinfo* at = addresses.get(); at != nullptr; at = at->ai_next) {
    const base::UniqueFd socket = base::OpenSocket(at->ai_family, at->ai_protocol);
    if (socket.Valid() && base::Connect(socket.Get(), at->ai_addr, at->ai_addrlen, WAIT_MS) == 0) return {};
    failure = std::strerror(errno);
  }
  return failure;
}

}  // namespace

std::vector<Destination> DestinationsOf(const Facts& facts) {
  std::vector<Destination> destinations;
  for (const ServerLine& server : facts.servers) {
    if (destinations.size() == MAX_SERVERS) break;
    destinations.push_back({server.key.c_str(), server.line, server.address, std::to_string(server.port)});
  }
  if (facts.Mails() && !facts.Text("MAIL_URL").empty()) {
    AddUrl(facts, "MAIL_URL", facts.Text("MAIL_URL").starts_with("smtps") ? MAILS_SERVICE : MAIL_SERVICE,
           &destinations);
  } else if (facts.Mails()) {
    destinations.push_back({"SMTP_SERVER_URL", facts.Of("SMTP_SERVER_URL").line,
                            facts.Text("SMTP_SERVER_URL"), facts.Text("SMTP_SERVER_PORT")});
  }
  if (facts.Posts()) AddUrl(facts, "WEBHOOK_SERVER_URL", "", &destinations);
  return destinations;
}

std::vector<CheckFinding> Reach(const Facts& facts) {
  const std::vector<Destination> destinations = DestinationsOf(facts);
  std::vector<std::string> failures(destinations.size());
  {
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < destinations.size(); ++i)
      threads.emplace_back([&, i] { failures[i] = Try(destinations[i]); });
  }
  std::vector<CheckFinding> findings;
  for (size_t i = 0; i < destinations.size(); ++i) {
    const Destination& to = destinations[i];
    if (failures[i].empty()) continue;
    findings.push_back({"unreachable", Level::ERROR, facts.file, to.line, to.key,
                        Shown(std::string(to.key) + ": " + to.host + " port " + to.port + ": " + failures[i] +
                              "; nothing arrives there")});
  }
  return findings;
}

}  // namespace ctl
