// The status of a session, and its texts.
#include "smtp/smtp_status.h"

#include <array>
#include <climits>
#include <cstddef>
#include <utility>

namespace {

constexpr std::array<const char*, SMTP_UNKNOWN + 1> SESSION_STATUS_TEXTS = {
    "Success",
    "Memory allocation failed",
    "Failed to connect to the mail server",
    "Failed to handshake or negotiate a TLS connection with the server",
    "Failed to authenticate with the given credentials",
    "Failed to send bytes to the server",
    "Failed to receive bytes from the server",
    "Failed to properly close a connection",
    "SMTP server sent back an unexpected status code",
    "Invalid parameter",
    "Failed to read or open a local file",
    "Failed to get the local date and time",
    "Unknown error",
};

}  // namespace

smtp_session* smtp_no_memory_session() {
  static smtp_session noMemorySession = [] {
    smtp_session noMemory;
    noMemory.flags = UINT_MAX;
    noMemory.status = SMTP_NO_MEMORY;
    return noMemory;
  }();
  return &noMemorySession;
}

int smtp_status_code_get(const smtp_session* session) {
  return session->status;
}

int smtp_status_code_clear(smtp_session* session) {
  if (session == smtp_no_memory_session()) return session->status;
  return std::exchange(session->status, SMTP_SUCCESS);
}

int smtp_status_code_set(smtp_session* session, int status) {
  if (session == smtp_no_memory_session()) return session->status;
  session->status = status < 0 || status >= SMTP_UNKNOWN ? SMTP_INVALID : status;
  return session->status;
}

const char* smtp_status_code_errstr(int status) {
  const bool knownStatus = status >= 0 && status < SMTP_UNKNOWN;
  return knownStatus ? SESSION_STATUS_TEXTS[static_cast<size_t>(status)] : SESSION_STATUS_TEXTS.back();
}
