#include "smtp/smtp_write.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/stoppable_socket.h"
#include "smtp/smtp_status.h"

void (*smtp_overhear)(const char* who, std::string_view text) = nullptr;

void smtp_puts_dbg(const smtp_session* session, const char* debugLabel, std::string_view printedLine) {
  if (smtp_overhear != nullptr) smtp_overhear(debugLabel, printedLine);
  if ((session->flags & SMTP_FLAG_DEBUG) == 0) return;
  try {
    std::string smtpDebugLine(printedLine);
    std::replace_if(
        smtpDebugLine.begin(), smtpDebugLine.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    std::fprintf(stderr, "[smtp %s]: %s\n", debugLabel, smtpDebugLine.c_str());
  } catch (const std::exception&) {
    return;  // a debug print must not make the mail fail
  }
}

int smtp_write(smtp_session* session, const char* writeData, size_t writeLength) {
  smtp_puts_dbg(session, "Client", {writeData, writeLength});
  if (writeLength > SMTP_WRITE_LIMIT) return smtp_status_code_set(session, SMTP_SEND_FAILED);
  if (session->tls_on != 0) return session->status;
  if (session->print != nullptr) {
    session->print->text.append(writeData, writeLength);
    return session->status;
  }
  const int64_t writeTimeout = std::clamp<int64_t>(session->readTimeout, 0, INT32_MAX) * 1000;
  if (base::SendAll(session->sock.Get(), writeData, writeLength, writeTimeout) != 0) {
    return smtp_status_code_set(session, SMTP_SEND_FAILED);
  }
  return session->status;
}

int smtp_puts(smtp_session* session, const char* text) {
  return smtp_write(session, text, std::strlen(text));
}

int smtp_puts(smtp_session* session, const std::string& text) {
  return smtp_write(session, text.data(), text.size());
}

int smtp_puts_terminate(smtp_session* session, const char* text) {
  return smtp_guarded(session, [session, text] {
    const std::string writtenLine = std::string(text) + "\r\n";
    return smtp_write(session, writtenLine.data(), writtenLine.size());
  });
}
