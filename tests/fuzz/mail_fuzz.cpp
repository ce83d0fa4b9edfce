// The texts of a mail: folded headers, doubled dots, split lines, base64, and the texts that a session
// accepts.
#include <openssl/evp.h>

#include <sstream>

#include "fuzz/fuzz.h"
#include "smtp/smtp_base64.h"
#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_fold.h"
#include "smtp/smtp_internal.h"
#include "smtp/smtp_line_split.h"
#include "smtp/smtp_strings.h"

namespace {

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Folding replaces blanks only, and a line that is still too long has no blank after a word.
void CheckFold(const std::string& text, size_t width) {
  if (text.find_first_of("\t\r\n") != std::string::npos) return;
  const base::UniqueText folded(smtp_fold_whitespace(text.c_str(), width));
  const std::string out = folded.get();
  HOLDS(Replaced(out, "\r\n ", " ") == text);
  std::istringstream lines(Replaced(out, "\r\n ", "\n"));
  for (std::string line; std::getline(lines, line);) {
    if (line.size() < std::max<size_t>(width, 3) - 2) continue;
    HOLDS(line.find(' ', line.find_first_not_of(' ')) >= line.find_last_not_of(' '));
  }
}

// Each line has n bytes, or up to 3 more so that no character is cut.
void CheckSplit(const std::string& text, size_t n) {
  const base::UniqueText split(smtp_chunk_split(text.c_str(), n, "\n"));
  if (split == nullptr || text.find('\n') != std::string::npos) return;
  const std::string out = split.get();
  HOLDS(Replaced(out, "\n", "") == text && out.ends_with('\n'));
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);)
    HOLDS(line.size() <= n + 3 && (line.size() >= n || lines.peek() == EOF));
}

void CheckBase64(const std::string& data, size_t piece) {
  std::string expected(data.size() / 3 * 4 + 5, '\0');
  expected.resize(
      size_t(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(expected.data()),
                             reinterpret_cast<const unsigned char*>(data.data()), int(data.size()))));
  size_t length = 0;
  const base::UniqueText encoded(smtp_base64_encode(data.data(), data.size(), &length));
  HOLDS(encoded.get() == expected && length == expected.size());
  for (size_t at = 78; at < expected.size(); at += 80) expected.insert(at, "\r\n");
  smtp_base64_lines_writer writer;
  const size_t step = piece * smtp_base64_lines_writer::UNIT;
  for (size_t at = 0; at < data.size(); at += step) {
    HOLDS(writer.Add(data.data() + at, std::min(step, data.size() - at)) == 0);
  }
  const base::UniqueText lines = writer.Finish(&length);
  HOLDS(std::string_view(lines.get(), length) == expected + "\r\n");
  // The slower implementation. On a processor without SSSE3 it is the same one.
  for (size_t at = 0; at + writer.UNIT < data.size(); at += writer.UNIT) {
    char by_table[160];
    smtp_base64_two_lines_by_table(reinterpret_cast<const unsigned char*>(data.data() + at), by_table);
    HOLDS(std::memcmp(lines.get() + at / writer.UNIT * sizeof by_table, by_table, sizeof by_table) == 0);
  }
}

}  // namespace

// The first byte chooses widths and sizes.
void fuzz_mail(const std::string& input) {
  const size_t n = static_cast<unsigned char>(input[0]) % 128;
  const std::string bytes = input.substr(std::min<size_t>(input.size(), 1));
  const std::string text = bytes.c_str();
  fuzz::Quickly(text, [&] { CheckFold(text, n); });
  const base::UniqueText stuffed(smtp_str_replace("\n.", "\n..", text.c_str()));
  HOLDS(stuffed.get() == Replaced(text, "\n.", "\n.."));
  CheckSplit(text, n + 1);
  CheckBase64(bytes, n % 4 + 1);
  // A text that a session accepts cannot add a line to the mail.
  smtp_session sessions[5];
  const int taken[] = {smtp_header_add(&sessions[0], "Subject", text.c_str()),
                       smtp_header_add(&sessions[1], text.c_str(), "value"),
                       smtp_address_add(&sessions[2], SMTP_ADDRESS_TO, text.c_str(), nullptr),
                       smtp_address_add(&sessions[3], SMTP_ADDRESS_TO, "a@b", text.c_str()),
                       smtp_attachment_add_mem(&sessions[4], text.c_str(), "x", 1)};
  const bool one_line = text.find_first_of("\r\n") == text.npos;
  for (const int status : taken) HOLDS(status == SMTP_INVALID || (status == SMTP_SUCCESS && one_line));
}
