// The texts of a mail: folded headers, doubled dots, split lines and base64, each taken back by a simple
// reader.
#include <cctype>
#include <cstring>
#include <vector>

#include "fuzz/fuzz.h"
#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_internal.h"
#include "smtp/smtp_text.h"

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

// A line that is too long has no blank behind a word at which it could have been broken.
void CheckFoldedLine(std::string_view line, size_t limit) {
  if (line.size() < limit) return;
  while (!line.empty() && IsBlank(line.back())) line.remove_suffix(1);
  while (!line.empty() && IsBlank(line.front())) line.remove_prefix(1);
  HOLDS(line.find_first_of(" \t") == std::string_view::npos);
}

void CheckFold(const std::string& text, size_t width) {
  const base::UniqueText folded(smtp_fold_whitespace(text.c_str(), width));
  HOLDS(folded != nullptr);
  const size_t limit = std::max<size_t>(width, 3) - 2;
  const char* out = folded.get();
  const char* line = out;
  for (const char byte : text) {
    if (byte == *out) {
      ++out;
      continue;
    }
    HOLDS(IsBlank(byte) && std::strncmp(out, "\r\n ", 3) == 0);
    CheckFoldedLine({line, size_t(out - line)}, limit);
    out += 3;
    line = out;
  }
  HOLDS(*out == '\0');
  CheckFoldedLine(line, limit);
}

void CheckDots(const std::string& text) {
  const base::UniqueText stuffed(smtp_str_replace("\n.", "\n..", text.c_str()));
  const std::string out = stuffed.get();
  std::string back;
  for (size_t i = 0; i < out.size(); ++i) {
    if (i >= 1 && out[i] == '.' && out[i - 1] == '\n') HOLDS(out[++i] == '.');
    back += out[i];
  }
  HOLDS(back == text);
}

void CheckSplit(const std::string& text, size_t n) {
  const base::UniqueText split(smtp_chunk_split(text.c_str(), n, "\r\n"));
  if (split == nullptr) return;
  const std::string_view out = split.get();
  size_t at = 0;
  for (size_t from = 0; from < text.size(); at += 2) {
    // Up to the end of the character that would be cut.
    size_t length = 0;
    while (length < n && from + length < text.size()) length += smtp_utf8_charlen(text[from + length]);
    length = std::min(length, text.size() - from);
    HOLDS(out.substr(at, length) == std::string_view(text).substr(from, length));
    from += length;
    at += length;
    HOLDS(out.substr(at, 2) == "\r\n");
  }
  HOLDS(text.empty() ? out == "\r\n" : at == out.size());
}

std::string Decode(std::string_view encoded) {
  static constexpr std::string_view ALPHABET =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  unsigned bits = 0;
  int held = 0;
  for (const char c : encoded) {
    if (c == '=' || c == '\r' || c == '\n') continue;
    HOLDS(ALPHABET.find(c) != std::string_view::npos);
    bits = bits << 6 | unsigned(ALPHABET.find(c));
    held += 6;
    if (held < 8) continue;
    held -= 8;
    out += static_cast<char>(bits >> held & 0xFF);
  }
  return out;
}

void CheckBase64(const std::string& data, size_t piece) {
  size_t length = 0;
  const base::UniqueText encoded(smtp_base64_encode(data.data(), data.size(), &length));
  HOLDS(std::strlen(encoded.get()) == length && length == (data.size() + 2) / 3 * 4);
  HOLDS(Decode(encoded.get()) == data);
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

// Whatever the session takes can add no line to the mail.
void CheckAdditions(const std::string& text) {
  const bool controls = text.find_first_of("\r\n") != std::string::npos;
  for (int kind = 0; kind < 5; ++kind) {
    smtp_session session;
    const char* const word = text.c_str();
    const int status = kind == 0   ? smtp_header_add(&session, "Subject", word)
                       : kind == 1 ? smtp_header_add(&session, word, "value")
                       : kind == 2 ? smtp_address_add(&session, SMTP_ADDRESS_TO, word, nullptr)
                       : kind == 3 ? smtp_address_add(&session, SMTP_ADDRESS_TO, "a@b", word)
                                   : smtp_attachment_add_mem(&session, word, "x", 1);
    HOLDS(status == SMTP_SUCCESS || status == SMTP_INVALID);
    if (controls) HOLDS(status == SMTP_INVALID);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t n = data[0] % 128;
  const std::string bytes = fuzz::Text(data + 1, size - 1);
  const std::string text = bytes.c_str();
  fuzz::Quickly(text, [&] {
    CheckFold(text, n);
    CheckDots(text);
  });
  CheckSplit(text, n + 1);
  CheckBase64(bytes, n % 4 + 1);
  CheckAdditions(text);
  return 0;
}
