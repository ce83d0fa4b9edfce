// A scripted mail server.
#ifndef TESTS_SMTP_PEER_H
#define TESTS_SMTP_PEER_H

#include <string>
#include <vector>

#include "smtp/smtp_internal.h"
#include "support/support.h"

// Each reply follows what the client sends: a line, or after 354 the mail up to its dot. "flood TEXT" sends
// the text without end, "end" ends the server's side. After the last it listens.
class MailPeer {
 public:
  explicit MailPeer(std::vector<std::string> replies)
      : replies_(std::move(replies)), peer_([this](int fd) { Serve(fd); }) {}
  // smtp_open to it; the session is closed by the test.
  int Open(smtp_session** session, unsigned flags = 0) const {
    return smtp_open("127.0.0.1", std::to_string(peer_.Port()).c_str(), 0, flags, nullptr, session);
  }
  // Waits for the client's end; all that it sent.
  const std::string& Received() {
    peer_.Finish();
    return received_;
  }

 private:
  bool Read(int fd) {
    char bytes[65536];
    const ssize_t got = ::recv(fd, bytes, sizeof bytes, 0);
    if (got > 0) received_.append(bytes, static_cast<size_t>(got));
    return got > 0;
  }
  void Serve(int fd) {
    for (const std::string& reply : replies_) {
      const size_t start = received_.size();
      if (reply == "end") {
        ::shutdown(fd, SHUT_WR);
      } else if (reply.starts_with("flood ")) {
        while (::send(fd, reply.data() + 6, reply.size() - 6, MSG_NOSIGNAL) > 0) continue;
      } else {
        support::Send(fd, reply + "\r\n");
      }
      const char* const mark = reply.starts_with("354 ") ? "\r\n.\r\n" : "\n";
      while (received_.find(mark, start) == std::string::npos && Read(fd)) continue;
    }
    while (Read(fd)) continue;
  }

  std::vector<std::string> replies_;
  std::string received_;
  support::Peer peer_;
};

#endif
