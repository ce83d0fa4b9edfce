// A Python script as the other side of a session.
#ifndef TESTS_SMTP_PEER_H
#define TESTS_SMTP_PEER_H

#include <cstdio>
#include <string>
#include <vector>

#include "smtp/smtp_internal.h"

// Runs a script that prints "PORT n" and, in the end, its findings. Arguments hold no single quote.
class Peer {
 public:
  Peer(const std::string& script, const std::vector<std::string>& arguments) {
    std::string command = "exec /usr/bin/python3 " + script;
    for (const auto& argument : arguments) command += " '" + argument + "'";
    pipe_ = ::popen(command.c_str(), "re");
    int port = 0;
    if (pipe_ != nullptr && std::fscanf(pipe_, "PORT %d", &port) == 1) std::fgetc(pipe_);
    port_ = std::to_string(port);
  }
  ~Peer() { Received(); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  const char* Port() const { return port_.c_str(); }
  // Waits for the script's end; what it printed after the port.
  std::string Received() {
    for (int c = 0; pipe_ != nullptr && (c = std::fgetc(pipe_)) != EOF;) received_ += static_cast<char>(c);
    if (pipe_ != nullptr) ::pclose(pipe_);
    pipe_ = nullptr;
    return received_;
  }

 private:
  FILE* pipe_ = nullptr;
  std::string port_;
  std::string received_;
};

// The scripted mail server of tests/peers.
class MailPeer : public Peer {
 public:
  explicit MailPeer(const std::vector<std::string>& steps) : Peer(SMTP_PEER, steps) {}
  // smtp_open to it; the session is closed by the test.
  int Open(smtp_session** session, unsigned flags = 0) const {
    return smtp_open("127.0.0.1", Port(), 0, flags, nullptr, session);
  }
};

#endif
