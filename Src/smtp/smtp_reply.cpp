#include "smtp/smtp_reply.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"
#include "smtp/smtp_write.h"

namespace {

constexpr size_t SHORTEST_CODED_REPLY = 5;
constexpr int FIRST_UNKNOWN_REPLY_CODE = 355;

int64_t ReadTimeoutMilliseconds(const smtp_session& session) {
  return std::clamp<int64_t>(session.readTimeout, 0, INT32_MAX) * 1000;
}

bool IsReplyDigit(char c) {
  return c >= '0' && c <= '9';
}

int ReplyCode(std::string_view replyLine) {
  int code = 0;
  for (const char c : replyLine.substr(0, 3)) {
    if (!IsReplyDigit(c)) return -1;
    code = code * 10 + (c - '0');
  }
  return code < FIRST_UNKNOWN_REPLY_CODE ? code : -1;
}

}  // namespace

int smtp_str_getdelimfd_read_timeout(smtp_session* session) {
  if (base::WaitDescriptor(session->sock.Get(), POLLIN, ReadTimeoutMilliseconds(*session)) > 0) return 0;
  smtp_status_code_set(session, SMTP_RECEIVE_FAILED);
  return -1;
}

ptrdiff_t smtp_str_getdelimfd_read(smtp_line_reader* reader, char* destination, size_t count) {
  auto* session = static_cast<smtp_session*>(reader->userData);
  if (session->tls_on != 0) return 0;
  if (smtp_str_getdelimfd_read_timeout(session) != 0) return -1;
  return base::ReceiveSome(session->sock.Get(), destination, count, ReadTimeoutMilliseconds(*session));
}

void smtp_set_read_timeout(smtp_session* session, int64_t seconds) {
  session->readTimeout = seconds;
}

int smtp_getline(smtp_session* session) {
  smtp_line_reader& reader = session->reader;
  const int lineResult = smtp_str_getdelimfd(&reader);
  if (lineResult < 0) {
    smtp_status_code_set(session, lineResult == SMTP_LINE_NO_MEMORY ? SMTP_NO_MEMORY : SMTP_RECEIVE_FAILED);
    return lineResult;
  }
  if (reader.lineLength > 0) reader.line.get()[--reader.lineLength] = '\0';
  smtp_puts_dbg(session, "Server", {reader.line.get(), reader.lineLength});
  return lineResult;
}

smtp_reply_line smtp_parse_cmd_line(std::string_view replyLine) {
  if (replyLine.size() < SHORTEST_CODED_REPLY) return {-1, false, replyLine};
  return {ReplyCode(replyLine), replyLine[3] == '-', replyLine.substr(4)};
}

int smtp_read_and_parse_code(smtp_session* session) {
  for (int replyLines = 0; replyLines < SMTP_REPLY_LINE_LIMIT; ++replyLines) {
    const int lineResult = smtp_getline(session);
    if (lineResult < 0) return -1;
    const auto reply = smtp_parse_cmd_line({session->reader.line.get(), session->reader.lineLength});
    if (!reply.more || lineResult == SMTP_LINE_END) return reply.code;
  }
  smtp_status_code_set(session, SMTP_RECEIVE_FAILED);
  return -1;
}
