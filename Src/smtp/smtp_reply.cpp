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

constexpr size_t SHORTEST_CODED_LINE = 5;
constexpr int FIRST_UNKNOWN_CODE = 355;

int64_t TimeoutMilliseconds(const smtp_session& session) {
  return std::clamp<int64_t>(session.readTimeout, 0, INT32_MAX) * 1000;
}

// Makes room for one more read. Returns 0, or -1 without memory.
int ReserveRead(smtp_line_reader* reader) {
  size_t room = 0;
  if (smtp_si_sub_size_t(reader->allocated, reader->held, &room) != 0) return -1;
  if (room >= SMTP_READ_SIZE) return 0;
  size_t size = 0;
  if (smtp_si_add_size_t(reader->allocated, SMTP_READ_SIZE, &size) != 0) return -1;
  if (!base::Resize(reader->buffer, size)) return -1;
  reader->allocated = size;
  return 0;
}

// Reads once more after the bytes held. Returns the number of bytes, or the smtp_line_result of a failure.
ptrdiff_t ReadMore(smtp_line_reader* reader) {
  if (reader->held >= SMTP_LINE_LIMIT) return SMTP_LINE_FAILED;
  if (ReserveRead(reader) != 0) return SMTP_LINE_NO_MEMORY;
  const ptrdiff_t got = reader->read(reader, reader->buffer.get() + reader->held, SMTP_READ_SIZE);
  if (got < 0) return SMTP_LINE_FAILED;
  reader->held += static_cast<size_t>(got);
  return got;
}

int FinishLine(smtp_line_reader* reader, size_t length, smtp_line_result result) {
  if (smtp_str_getdelimfd_set_line_and_buf(reader, length) == 0) return result;
  return smtp_str_getdelimfd_throw_error(reader, SMTP_LINE_NO_MEMORY);
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

int ReplyCode(std::string_view line) {
  int code = 0;
  for (const char c : line.substr(0, 3)) {
    if (!IsDigit(c)) return -1;
    code = code * 10 + (c - '0');
  }
  return code < FIRST_UNKNOWN_CODE ? code : -1;
}

}  // namespace

int smtp_str_getdelimfd_search_delim(const char* bytes, size_t length, char delimiter, size_t* position) {
  const void* found = length == 0 ? nullptr : std::memchr(bytes, delimiter, length);
  if (found == nullptr) return 0;
  *position = static_cast<size_t>(static_cast<const char*>(found) - bytes);
  return 1;
}

int smtp_str_getdelimfd_set_line_and_buf(smtp_line_reader* reader, size_t length) {
  size_t size = 0;
  if (smtp_si_add_size_t(length, 1, &size) != 0) return -1;
  auto* line = static_cast<char*>(std::malloc(size));
  if (line == nullptr) return -1;
  reader->line.reset(line);
  reader->lineLength = length;
  if (length > 0) std::memcpy(line, reader->buffer.get(), length);
  line[length] = '\0';
  const size_t gone = std::min(size, reader->held);
  reader->held -= gone;
  if (reader->held > 0) std::memmove(reader->buffer.get(), reader->buffer.get() + gone, reader->held);
  return 0;
}

void smtp_str_getdelimfd_free(smtp_line_reader* reader) {
  reader->buffer.reset();
  reader->line.reset();
  reader->allocated = reader->held = reader->lineLength = 0;
}

int smtp_str_getdelimfd_throw_error(smtp_line_reader* reader, int result) {
  smtp_str_getdelimfd_free(reader);
  return result;
}

int smtp_str_getdelimfd(smtp_line_reader* reader) {
  size_t searched = 0;  // so many of the bytes held contain no delimiter
  size_t position = 0;
  while (smtp_str_getdelimfd_search_delim(reader->buffer.get() + searched, reader->held - searched,
                                          reader->delimiter, &position) == 0) {
    searched = reader->held;
    const ptrdiff_t got = ReadMore(reader);
    if (got < 0) return smtp_str_getdelimfd_throw_error(reader, static_cast<int>(got));
    if (got == 0) return FinishLine(reader, reader->held, SMTP_LINE_END);
  }
  return FinishLine(reader, searched + position, SMTP_LINE);
}

int smtp_str_getdelimfd_read_timeout(smtp_session* session) {
  if (base::WaitDescriptor(session->sock.Get(), POLLIN, TimeoutMilliseconds(*session)) > 0) return 0;
  smtp_status_code_set(session, SMTP_RECEIVE_FAILED);
  return -1;
}

ptrdiff_t smtp_str_getdelimfd_read(smtp_line_reader* reader, char* destination, size_t count) {
  auto* session = static_cast<smtp_session*>(reader->userData);
  if (session->tls_on != 0) return 0;
  if (smtp_str_getdelimfd_read_timeout(session) != 0) return -1;
  return base::ReceiveSome(session->sock.Get(), destination, count, TimeoutMilliseconds(*session));
}

void smtp_set_read_timeout(smtp_session* session, int64_t seconds) {
  session->readTimeout = seconds;
}

int smtp_getline(smtp_session* session) {
  smtp_line_reader& reader = session->reader;
  const int result = smtp_str_getdelimfd(&reader);
  if (result < 0) {
    smtp_status_code_set(session, result == SMTP_LINE_NO_MEMORY ? SMTP_NO_MEMORY : SMTP_RECEIVE_FAILED);
    return result;
  }
  if (reader.lineLength > 0) reader.line.get()[--reader.lineLength] = '\0';
  smtp_puts_dbg(session, "Server", {reader.line.get(), reader.lineLength});
  return result;
}

smtp_reply_line smtp_parse_cmd_line(std::string_view line) {
  if (line.size() < SHORTEST_CODED_LINE) return {-1, false, line};
  return {ReplyCode(line), line[3] == '-', line.substr(4)};
}

int smtp_read_and_parse_code(smtp_session* session) {
  for (int lines = 0; lines < SMTP_REPLY_LINE_LIMIT; ++lines) {
    const int result = smtp_getline(session);
    if (result < 0) return -1;
    const auto reply = smtp_parse_cmd_line({session->reader.line.get(), session->reader.lineLength});
    if (!reply.more || result == SMTP_LINE_END) return reply.code;
  }
  smtp_status_code_set(session, SMTP_RECEIVE_FAILED);
  return -1;
}
