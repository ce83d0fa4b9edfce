// The status of a session: what stands for a lack of memory, and how public functions keep to the first
// failure.
#ifndef SMTP_SMTP_STATUS_H
#define SMTP_SMTP_STATUS_H

#include <exception>

#include "smtp/smtp.h"
#include "smtp/smtp_session.h"

// The session used when none could be allocated. All bits of its flags are set.
smtp_session* smtp_no_memory_session();

// Runs the body of a public function, which returns the status. Skips it when the session has already failed.
// Catches every exception; only those of memory can occur here.
template <typename Body>
int smtp_guarded(smtp_session* session, Body body) {
  if (session->status != SMTP_SUCCESS) return session->status;
  try {
    return body();
  } catch (const std::exception&) {
    return smtp_status_code_set(session, SMTP_NO_MEMORY);
  }
}

#endif
