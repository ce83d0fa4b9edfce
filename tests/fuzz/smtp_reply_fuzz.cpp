// The mail server's replies, in pieces of the size that the first byte says.
#include <cstring>

#include "fuzz/fuzz.h"
#include "smtp/smtp_internal.h"

namespace {

std::string_view input;
size_t piece;

ptrdiff_t Supply(smtp_line_reader* /*reader*/, char* destination, size_t count) {
  const size_t length = std::min({count, piece, input.size()});
  std::memcpy(destination, input.data(), length);
  input.remove_prefix(length);
  return ptrdiff_t(length);
}

// The code of the reply at the head of a stream; false when the reply breaks a bound.
bool Expect(std::string_view stream, int* code) {
  for (int lines = 0; lines < SMTP_REPLY_LINE_LIMIT; ++lines) {
    const size_t end = std::min(stream.find('\n'), stream.size());
    // A bound is met where a read ends.
    if (end >= SMTP_LINE_LIMIT) return false;
    const std::string_view line = stream.substr(0, end == 0 ? 0 : end - 1);
    const bool last = end == stream.size();
    stream.remove_prefix(last ? end : end + 1);
    *code = -1;
    if (line.size() > 4 && line.find_first_not_of("0123456789") > 2) {
      *code = std::stoi(std::string(line.substr(0, 3)));
      if (*code > 354) *code = -1;
    }
    if (last || line.size() <= 4 || line[3] != '-') return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text = fuzz::Text(data + 1, size - 1);
  piece = data[0] * 4 + 1;
  int expected = -1;
  const bool in_bounds = Expect(text, &expected);
  fuzz::Quickly(text, [&] {
    input = text;
    smtp_session session;
    session.reader.read = Supply;
    const int code = smtp_read_and_parse_code(&session);
    HOLDS(code >= -1 && code <= 354);
    HOLDS(code == (session.status == SMTP_SUCCESS ? expected : -1));
    if (in_bounds) HOLDS(session.status == SMTP_SUCCESS);
    HOLDS(session.reader.lineLength < SMTP_LINE_LIMIT + SMTP_READ_SIZE);
  });
  return 0;
}
