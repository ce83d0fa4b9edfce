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

int64_t ReplyTimeoutMilliseconds(const smtp_session& session) {
  return std::clamp<int64_t>(session.readTimeout, 0, INT32_MAX) * 1000;
}

bool IsReplyDigit(char replyByte) {
  return replyByte >= '0' && replyByte <= '9';
}

int ReplyCode(std::string_view replyLine) {
  int replyCode = 0;
  for (const char replyByte : replyLine.substr(0, 3)) {
    if (!IsReplyDigit(replyByte)) return -1;
    replyCode = replyCode * 10 + (replyByte - '0');
  }
  return replyCode < FIRST_UNKNOWN_REPLY_CODE ? replyCode : -1;
}

}  // namespace

int smtp_str_getdelimfd_read_timeout(smtp_session* session) {
  if (base::WaitDescriptor(session->sock.Get(), POLLIN, ReplyTimeoutMilliseconds(*session)) > 0) return 0;
  smtp_status_code_set(session, SMTP_RECEIVE_FAILED);
  return -1;
}

ptrdiff_t smtp_str_getdelimfd_read(smtp_line_reader* reader, char* destination, size_t count) {
  auto* replySession = static_cast<smtp_session*>(reader->userData);
  if (replySession->tls_on != 0) return 0;
  if (smtp_str_getdelimfd_read_timeout(replySession) != 0) return -1;
  return base::ReceiveSome(replySession->sock.Get(), destination, count,
                           ReplyTimeoutMilliseconds(*replySession));
}

void smtp_set_read_timeout(smtp_session* session, int64_t replySeconds) {
  session->readTimeout = replySeconds;
}

int smtp_getline(smtp_session* session) {
  smtp_line_reader& replyReader = session->reader;
  const int replyResult = smtp_str_getdelimfd(&replyReader);
  if (replyResult < 0) {
    smtp_status_code_set(session, replyResult == SMTP_LINE_NO_MEMORY ? SMTP_NO_MEMORY : SMTP_RECEIVE_FAILED);
    return replyResult;
  }
  if (replyReader.lineLength > 0) replyReader.line.get()[--replyReader.lineLength] = '\0';
  smtp_puts_dbg(session, "Server", {replyReader.line.get(), replyReader.lineLength});
  return replyResult;
}

smtp_reply_line smtp_parse_cmd_line(std::string_view replyLine) {
  if (replyLine.size() < SHORTEST_CODED_REPLY) return {-1, false, replyLine};
  return {ReplyCode(replyLine), replyLine[3] == '-', replyLine.substr(4)};
}

int smtp_read_and_parse_code(smtp_session* session) {
  for (int replyLines = 0; replyLines < SMTP_REPLY_LINE_LIMIT; ++replyLines) {
    const int replyResult = smtp_getline(session);
    if (replyResult < 0) return -1;
    const auto reply = smtp_parse_cmd_line({session->reader.line.get(), session->reader.lineLength});
    if (!reply.more || replyResult == SMTP_LINE_END) return reply.code;
  }
  smtp_status_code_set(session, SMTP_RECEIVE_FAILED);
  return -1;
}
