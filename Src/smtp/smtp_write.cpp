#include "smtp/smtp_write.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/stoppable_socket.h"
#include "smtp/smtp_status.h"

void (*smtp_overhear)(const char* who, std::string_view text) = nullptr;

void smtp_puts_dbg(const smtp_session* session, const char* label, std::string_view text) {
  if (smtp_overhear != nullptr) smtp_overhear(label, text);
  if ((session->flags & SMTP_FLAG_DEBUG) == 0) return;
  try {
    std::string printedText(text);
    std::replace_if(
        printedText.begin(), printedText.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    std::fprintf(stderr, "[smtp %s]: %s\n", label, printedText.c_str());
  } catch (const std::exception&) {
    return;  // a debug print must not make the mail fail
  }
}

int smtp_write(smtp_session* session, const char* data, size_t length) {
  smtp_puts_dbg(session, "Client", {data, length});
  if (length > SMTP_WRITE_LIMIT) return smtp_status_code_set(session, SMTP_SEND_FAILED);
  if (session->tls_on != 0) return session->status;
  if (session->print != nullptr) {
    session->print->text.append(data, length);
    return session->status;
  }
  const int64_t sendTimeout = std::clamp<int64_t>(session->readTimeout, 0, INT32_MAX) * 1000;
  if (base::SendAll(session->sock.Get(), data, length, sendTimeout) != 0) {
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
  return smtp_guarded(session, [&] {
    const std::string terminated = std::string(text) + "\r\n";
    return smtp_write(session, terminated.data(), terminated.size());
  });
}
