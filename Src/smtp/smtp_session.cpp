#include "smtp/smtp_session.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/resolve.h"
#include "base/stoppable_socket.h"
#include "smtp/smtp_base64.h"
#include "smtp/smtp_reply.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_write.h"

namespace {

constexpr int64_t HANDSHAKE_TIMEOUT = 300;
constexpr int CODE_AUTHENTICATED = 235;
constexpr int CODE_AUTH_GOES_ON = 334;

std::unique_ptr<smtp_session> NewSession(unsigned flags, const char* cafile) {
  std::unique_ptr<smtp_session> session(new (std::nothrow) smtp_session);
  if (session == nullptr) return nullptr;
  session->flags = flags;
  session->reader.read = smtp_str_getdelimfd_read;
  session->reader.userData = session.get();
  try {
    if (cafile != nullptr) session->cafile = cafile;
  } catch (const std::exception&) {
    return nullptr;
  }
  return session;
}

// Sends one AUTH line: the command, the base64 of the credentials, CRLF. Returns the status.
int WriteAuthLine(smtp_session* session, const std::string& command, std::string_view credentials) {
  const base::UniqueText encodedCredentials(smtp_base64_encode(credentials.data(), credentials.size()));
  if (encodedCredentials == nullptr) return smtp_status_code_set(session, SMTP_NO_MEMORY);
  return smtp_puts_terminate(session, (command + encodedCredentials.get()).c_str());
}

// Reads a reply that must have this code. Returns the status.
int ExpectAuthReply(smtp_session* session, int authCode) {
  if (session->status != SMTP_SUCCESS || smtp_read_and_parse_code(session) == authCode)
    return session->status;
  return smtp_status_code_set(session, SMTP_AUTH_FAILED);
}

}  // namespace

smtp_printed* smtp_print_instead = nullptr;

int smtp_connect(smtp_session* session, const char* server, const char* port) {
  base::AddressList smtpAddresses;
  session->connectError = base::Resolve(server, port, AF_UNSPEC, IPPROTO_TCP, &smtpAddresses);
  if (session->connectError == EAI_SYSTEM) session->connectError = errno;
  if (session->connectError == 0) {
    for (const addrinfo* address = smtpAddresses.get(); address != nullptr; address = address->ai_next) {
      base::UniqueFd smtpSock = base::OpenSocket(address->ai_family, address->ai_protocol);
      if (!smtpSock.Valid() || base::Connect(smtpSock.Get(), address->ai_addr, address->ai_addrlen) != 0) {
        session->connectError = errno;
        continue;
      }
      // A mail ends with several small writes. They must not wait for each other's acknowledgement.
      const int noDelay = 1;
      ::setsockopt(smtpSock.Get(), IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
      session->sock = std::move(smtpSock);
      return session->status;
    }
  }
  return smtp_status_code_set(session, SMTP_CONNECT_FAILED);
}

const char* smtp_connect_errstr(const smtp_session* session) {
  const int smtpConnectError = session->connectError;
  return smtpConnectError < 0 ? ::gai_strerror(smtpConnectError) : std::strerror(smtpConnectError);
}

int smtp_ehlo(smtp_session* session) {
  if (smtp_puts(session, "EHLO smtp\r\n") == SMTP_SUCCESS) smtp_read_and_parse_code(session);
  return session->status;
}

int smtp_initiate_handshake(smtp_session* session) {
  smtp_set_read_timeout(session, HANDSHAKE_TIMEOUT);
  if (smtp_getline(session) >= 0) smtp_ehlo(session);
  if (session->status == SMTP_SUCCESS) return SMTP_SUCCESS;
  return smtp_status_code_set(session, SMTP_HANDSHAKE_FAILED);
}

int smtp_open(const char* server, const char* port, int /*connection_security*/, unsigned flags,
              const char* cafile, smtp_session** session) {
  *session = NewSession(flags, cafile).release();
  if (*session == nullptr) {
    *session = smtp_no_memory_session();
    return SMTP_NO_MEMORY;
  }
  (*session)->print = smtp_print_instead;
  if (smtp_print_instead != nullptr) return SMTP_SUCCESS;
  std::signal(SIGPIPE, SIG_IGN);
  if (smtp_connect(*session, server, port) == SMTP_SUCCESS) smtp_initiate_handshake(*session);
  return (*session)->status;
}

int smtp_auth_plain(smtp_session* session, const char* user, const char* password) {
  std::string credentials(1, '\0');
  credentials.append(user).append(1, '\0').append(password);
  WriteAuthLine(session, "AUTH PLAIN ", credentials);
  return ExpectAuthReply(session, CODE_AUTHENTICATED);
}

int smtp_auth_login(smtp_session* session, const char* user, const char* password) {
  WriteAuthLine(session, "AUTH LOGIN ", user);
  if (ExpectAuthReply(session, CODE_AUTH_GOES_ON) != SMTP_SUCCESS) return session->status;
  WriteAuthLine(session, "", password);
  return ExpectAuthReply(session, CODE_AUTHENTICATED);
}

int smtp_auth(smtp_session* session, int method, const char* user, const char* password) {
  if (session->status != SMTP_SUCCESS || method == SMTP_METHOD_NONE) return session->status;
  const bool knownAuthMethod = method == SMTP_METHOD_PLAIN || method == SMTP_METHOD_LOGIN;
  if (!knownAuthMethod || user == nullptr || password == nullptr)
    return smtp_status_code_set(session, SMTP_INVALID);
  if (session->print != nullptr) return SMTP_SUCCESS;
  const int authStatus = smtp_guarded(session, [&] {
    return method == SMTP_METHOD_PLAIN ? smtp_auth_plain(session, user, password)
                                       : smtp_auth_login(session, user, password);
  });
  return authStatus == SMTP_SUCCESS ? authStatus : smtp_status_code_set(session, SMTP_AUTH_FAILED);
}

int smtp_close(smtp_session* session) {
  if (session == smtp_no_memory_session()) return session->status;
  const std::unique_ptr<smtp_session> ownedSession(session);
  const int statusBeforeClose = smtp_status_code_clear(session);
  if (session->print != nullptr) session->print->status = statusBeforeClose;
  if (session->sock.Valid()) {
    // After a failure the server's window may be full: do not wait for it again.
    if (statusBeforeClose != SMTP_SUCCESS) smtp_set_read_timeout(session, 0);
    smtp_puts(session, "QUIT\r\n");
    if (session->sock.Reset() != 0 && session->status == SMTP_SUCCESS) {
      smtp_status_code_set(session, SMTP_CLOSE_FAILED);
    }
  }
  return statusBeforeClose != SMTP_SUCCESS ? statusBeforeClose : session->status;
}
