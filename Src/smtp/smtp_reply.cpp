#include "smtp/smtp_reply.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "smtp/smtp_session.h"
#include "smtp/smtp_strings.h"
#include "smtp/smtp_write.h"

namespace {

constexpr size_t SHORTEST_CODED_REPLY = 5;
constexpr int FIRST_UNKNOWN_REPLY_CODE = 355;

int64_t ReadTimeoutMilliseconds(const smtp_session& session) {
  return std::clamp<int64_t>(session.readTimeout, 0, INT32_MAX) * 1000;
}

// Makes room for one more read. Returns 0, or -1 without memory.
int ReserveReplyRead(smtp_line_reader* reader) {
  size_t room = 0;
  if (smtp_si_sub_size_t(reader->allocated, reader->held, &room) != 0) return -1;
  if (room >= SMTP_READ_SIZE) return 0;
  size_t bufferSize = 0;
  if (smtp_si_add_size_t(reader->allocated, SMTP_READ_SIZE, &bufferSize) != 0) return -1;
  if (!base::Resize(reader->buffer, bufferSize)) return -1;
  reader->allocated = bufferSize;
  return 0;
}

// Reads once more after the bytes held. Returns the number of bytes, or the smtp_line_result of a failure.
ptrdiff_t ReadMoreReply(smtp_line_reader* reader) {
  if (reader->held >= SMTP_LINE_LIMIT) return SMTP_LINE_FAILED;
  if (ReserveReplyRead(reader) != 0) return SMTP_LINE_NO_MEMORY;
  const ptrdiff_t received = reader->read(reader, reader->buffer.get() + reader->held, SMTP_READ_SIZE);
  if (received < 0) return SMTP_LINE_FAILED;
  reader->held += static_cast<size_t>(received);
  return received;
}

int FinishReplyLine(smtp_line_reader* reader, size_t lineLength, smtp_line_result lineResult) {
  if (smtp_str_getdelimfd_set_line_and_buf(reader, lineLength) == 0) return lineResult;
  return smtp_str_getdelimfd_throw_error(reader, SMTP_LINE_NO_MEMORY);
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

int smtp_str_getdelimfd_search_delim(const char* received, size_t length, char delimiter, size_t* position) {
  const void* delimiterFound = length == 0 ? nullptr : std::memchr(received, delimiter, length);
  if (delimiterFound == nullptr) return 0;
  *position = static_cast<size_t>(static_cast<const char*>(delimiterFound) - received);
  return 1;
}

int smtp_str_getdelimfd_set_line_and_buf(smtp_line_reader* reader, size_t lineLength) {
  size_t lineSize = 0;
  if (smtp_si_add_size_t(lineLength, 1, &lineSize) != 0) return -1;
  auto* line = static_cast<char*>(std::malloc(lineSize));
  if (line == nullptr) return -1;
  reader->line.reset(line);
  reader->lineLength = lineLength;
  if (lineLength > 0) std::memcpy(line, reader->buffer.get(), lineLength);
  line[lineLength] = '\0';
  const size_t taken = std::min(lineSize, reader->held);
  reader->held -= taken;
  if (reader->held > 0) std::memmove(reader->buffer.get(), reader->buffer.get() + taken, reader->held);
  return 0;
}

void smtp_str_getdelimfd_free(smtp_line_reader* reader) {
  reader->buffer.reset();
  reader->line.reset();
  reader->allocated = reader->held = reader->lineLength = 0;
}

int smtp_str_getdelimfd_throw_error(smtp_line_reader* reader, int lineResult) {
  smtp_str_getdelimfd_free(reader);
  return lineResult;
}

int smtp_str_getdelimfd(smtp_line_reader* reader) {
  size_t searched = 0;  // so many of the bytes held contain no delimiter
  size_t delimiterAt = 0;
  while (smtp_str_getdelimfd_search_delim(reader->buffer.get() + searched, reader->held - searched,
                                          reader->delimiter, &delimiterAt) == 0) {
    searched = reader->held;
    const ptrdiff_t received = ReadMoreReply(reader);
    if (received < 0) return smtp_str_getdelimfd_throw_error(reader, static_cast<int>(received));
    if (received == 0) return FinishReplyLine(reader, reader->held, SMTP_LINE_END);
  }
  return FinishReplyLine(reader, searched + delimiterAt, SMTP_LINE);
}

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
