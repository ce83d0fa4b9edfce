// The mail server's replies: the code must not depend on the pieces in which they arrive.
#include "fuzz/fuzz.h"
#include "smtp/smtp_session.h"

namespace {

std::string_view input;
size_t piece;

ptrdiff_t Supply(smtp_line_reader* /*reader*/, char* destination, size_t count) {
  const size_t length = std::min({count, piece, input.size()});
  std::memcpy(destination, input.data(), length);
  input.remove_prefix(length);
  return ptrdiff_t(length);
}

int CodeInPieces(std::string_view text, size_t size) {
  input = text;
  piece = size;
  smtp_session session;
  session.reader.read = Supply;
  const int code = smtp_read_and_parse_code(&session);
  HOLDS(code >= -1 && code <= 354);
  HOLDS(session.status == SMTP_SUCCESS || code == -1);
  HOLDS(session.reader.lineLength < SMTP_LINE_LIMIT + SMTP_READ_SIZE);
  return code;
}

}  // namespace

FUZZ_TARGET(bytes) {
  const std::string text = bytes.substr(std::min<size_t>(bytes.size(), 1));
  const size_t other = bytes.empty() ? 1 : static_cast<unsigned char>(bytes[0]) * 4U + 1;
  int code = 0;
  fuzz::Quickly(text, [&] { code = CodeInPieces(text, text.size()); });
  HOLDS(code == -1 || text.find(std::to_string(code)) != text.npos);
  // The limits apply at the end of a read, so they depend on the pieces.
  const bool bounded = std::count(text.begin(), text.end(), '\n') >= SMTP_REPLY_LINE_LIMIT - 1 ||
                       text.size() >= SMTP_LINE_LIMIT;
  HOLDS(bounded || CodeInPieces(text, other) == code);
}
