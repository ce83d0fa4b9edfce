#include "smtp/smtp_line_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "smtp/smtp_strings.h"

namespace {

// Makes room for one more read. Returns 0, or -1 without memory.
int ReserveLineRead(smtp_line_reader* reader) {
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
ptrdiff_t ReadMoreOfLine(smtp_line_reader* reader) {
  if (reader->held >= SMTP_LINE_LIMIT) return SMTP_LINE_FAILED;
  if (ReserveLineRead(reader) != 0) return SMTP_LINE_NO_MEMORY;
  const ptrdiff_t received = reader->read(reader, reader->buffer.get() + reader->held, SMTP_READ_SIZE);
  if (received < 0) return SMTP_LINE_FAILED;
  reader->held += static_cast<size_t>(received);
  return received;
}

int FinishLine(smtp_line_reader* reader, size_t lineLength, smtp_line_result lineResult) {
  if (smtp_str_getdelimfd_set_line_and_buf(reader, lineLength) == 0) return lineResult;
  return smtp_str_getdelimfd_throw_error(reader, SMTP_LINE_NO_MEMORY);
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
  auto* heldLine = static_cast<char*>(std::malloc(lineSize));
  if (heldLine == nullptr) return -1;
  reader->line.reset(heldLine);
  reader->lineLength = lineLength;
  if (lineLength > 0) std::memcpy(heldLine, reader->buffer.get(), lineLength);
  heldLine[lineLength] = '\0';
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
    const ptrdiff_t received = ReadMoreOfLine(reader);
    if (received < 0) return smtp_str_getdelimfd_throw_error(reader, static_cast<int>(received));
    if (received == 0) return FinishLine(reader, reader->held, SMTP_LINE_END);
  }
  return FinishLine(reader, searched + delimiterAt, SMTP_LINE);
}
