// The texts of a mail: folded headers, doubled dots, split lines, base64, and what a session takes.
#include <openssl/evp.h>

#include <vector>

#include "fuzz/fuzz.h"
#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_internal.h"
#include "smtp/smtp_text.h"

namespace {

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Folds stand for blanks, and a line that is too long has no blank behind a word to break it at.
void CheckFold(const std::string& text, size_t width) {
  if (text.find_first_of("\t\r\n") != std::string::npos) return;
  const base::UniqueText folded(smtp_fold_whitespace(text.c_str(), width));
  const std::string out = folded.get();
  HOLDS(Replaced(out, "\r\n ", " ") == text);
  for (size_t from = 0, to = 0; to < out.size(); from = to + 2) {
    to = std::min(out.find("\r\n", from), out.size());
    std::string_view line = std::string_view(out).substr(from, to - from);
    if (line.size() < std::max<size_t>(width, 3) - 2) continue;
    line = line.substr(0, line.find_last_not_of(' ') + 1);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    HOLDS(line.find(' ') == line.npos);
  }
}

// Cut behind n bytes, or behind the character that would be cut.
void CheckSplit(const std::string& text, size_t n) {
  const base::UniqueText split(smtp_chunk_split(text.c_str(), n, "\n"));
  if (split == nullptr || text.find('\n') != std::string::npos) return;
  const std::string out = split.get();
  HOLDS(Replaced(out, "\n", "") == text && out.ends_with('\n'));
  for (size_t from = 0, to = 0; (to = out.find('\n', from)) != std::string::npos; from = to + 1) {
    HOLDS(to - from <= n + 3 && (to - from >= n || to == out.size() - 1));
  }
}

void CheckBase64(const std::string& data, size_t piece) {
  size_t length = 0;
  const base::UniqueText encoded(smtp_base64_encode(data.data(), data.size(), &length));
  std::vector<unsigned char> expected(data.size() / 3 * 4 + 5);
  HOLDS(size_t(EVP_EncodeBlock(expected.data(), reinterpret_cast<const unsigned char*>(data.data()),
                               int(data.size()))) == length);
  HOLDS(std::memcmp(encoded.get(), expected.data(), length + 1) == 0);
  const base::UniqueText split(smtp_chunk_split(encoded.get(), 78, "\r\n"));
  const base::UniqueText lines(smtp_base64_lines(data.data(), data.size(), &length));
  HOLDS(std::string_view(split.get()) == std::string_view(lines.get(), length));
  smtp_base64_lines_writer writer;
  const size_t step = piece * smtp_base64_lines_writer::UNIT;
  for (size_t at = 0; at < data.size(); at += step) {
    HOLDS(writer.Add(data.data() + at, std::min(step, data.size() - at)) == 0);
  }
  const base::UniqueText pieces = writer.Finish(&length);
  HOLDS(std::string_view(split.get()) == std::string_view(pieces.get(), length));
}

// Whatever a session takes can add no line to the mail.
void CheckAddition(const std::string& text, int (*add)(smtp_session*, const char*)) {
  smtp_session session;
  const int status = add(&session, text.c_str());
  HOLDS(status == SMTP_INVALID || (status == SMTP_SUCCESS && text.find_first_of("\r\n") == text.npos));
}

}  // namespace

FUZZ_TARGET(input) {
  const size_t n = input.empty() ? 0 : static_cast<unsigned char>(input[0]) % 128;
  const std::string bytes = input.substr(std::min<size_t>(input.size(), 1));
  const std::string text = bytes.c_str();
  fuzz::Quickly(text, [&] { CheckFold(text, n); });
  const base::UniqueText stuffed(smtp_str_replace("\n.", "\n..", text.c_str()));
  HOLDS(stuffed.get() == Replaced(text, "\n.", "\n.."));
  CheckSplit(text, n + 1);
  CheckBase64(bytes, n % 4 + 1);
  CheckAddition(text, [](auto* s, auto* word) { return int(smtp_header_add(s, "Subject", word)); });
  CheckAddition(text, [](auto* s, auto* word) { return int(smtp_header_add(s, word, "value")); });
  CheckAddition(text,
                [](auto* s, auto* word) { return int(smtp_address_add(s, SMTP_ADDRESS_TO, word, nullptr)); });
  CheckAddition(text,
                [](auto* s, auto* word) { return int(smtp_address_add(s, SMTP_ADDRESS_TO, "a@b", word)); });
  CheckAddition(text, [](auto* s, auto* word) { return int(smtp_attachment_add_mem(s, word, "x", 1)); });
}
