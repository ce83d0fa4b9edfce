// The session record and its status, for the sources and the tests of this folder.
#ifndef SMTP_SMTP_STATUS_H
#define SMTP_SMTP_STATUS_H

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "base/unique_handles.h"
#include "smtp/smtp.h"
#include "smtp/smtp_attachments.h"
#include "smtp/smtp_headers.h"
#include "smtp/smtp_line_reader.h"

struct smtp_session {
  unsigned flags = 0;
  base::UniqueFd sock;
  smtp_line_reader reader;
  std::vector<smtp_header> headers;  // sorted by key
  std::vector<smtp_address> addresses;
  std::vector<smtp_attachment> attachments;
  int64_t readTimeout = 0;  // seconds
  int status = SMTP_SUCCESS;
  int connectError = 0;  // errno, or negative a result of getaddrinfo(3)
  int tls_on = 0;        // when not 0, reads return end of input and writes send nothing
  std::string cafile;
  smtp_printed* print = nullptr;  // takes the mail in place of a server
};

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
