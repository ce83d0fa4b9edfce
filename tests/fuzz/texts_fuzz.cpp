// Conversions and parsers of texts: code page 949, trace messages, the process file system, mails.
#include <openssl/evp.h>

#include <sstream>
#include <vector>

#include "charset/cp949.h"
#include "charset/is_utf8.h"
#include "fuzz/fuzz.h"
#include "smtp/smtp_base64.h"
#include "smtp/smtp_headers.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"
#include "sysinfo/process_status.h"
#include "sysinfo/qxapi_text.h"
#include "utils/trace_line.h"

namespace {

void CheckEncode(const std::string& text) {
  char* out = nullptr;
  uint32_t length = 0;
  const int32_t result = encode_UTF8(text.c_str(), uint32_t(text.size()), &out, &length);
  const base::UniqueText owner(out);
  HOLDS((out != nullptr) == (result == 0));
  if (result != 0) return;
  HOLDS(out[length] == '\0' && length >= text.size() && length <= text.size() / 2 * 3 + text.size() % 2 * 2);
  std::string back(text.size() + 1, '\0');
  // A text of ASCII and syllables survives the round trip.
  if (decode_UTF8(out, int32_t(length), back.data(), int32_t(back.size())) == int32_t(text.size()) &&
      std::strlen(out) == length && std::strchr(back.data(), ' ') == nullptr) {
    HOLDS(back == text + '\0');
  }
}

// Decodes with buffers of exactly the needed sizes, so that the sanitizer sees every byte too many.
void CheckDecode(const std::string& text, size_t room) {
  const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
  std::vector<char> out(room);
  const int32_t length = decode_UTF8(exact.data(), int32_t(text.size()), out.data(), int32_t(room));
  HOLDS(length >= -1 && length < int32_t(std::max<size_t>(room, 1)));
  HOLDS(length < 0 || (out[size_t(length)] == '\0' && size_t(length) <= text.size()));
}

}  // namespace

// Code page 949 to UTF-8 and back, and the check for UTF-8. The first byte chooses the size of a buffer.
void fuzz_charset(const std::string& bytes) {
  const std::string text = bytes.substr(std::min<size_t>(bytes.size(), 1));
  fuzz::Quickly(text, [&] { CheckEncode(text); });
  CheckDecode(text, static_cast<unsigned char>(bytes[0]));
  CheckDecode(text, text.size() + 1);
  const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
  const int32_t verdict = is_UTF8(text.c_str());
  HOLDS(verdict == 1 || (verdict == 0 && !ascii));
}

// The conversion of a message for the trace.
void fuzz_trace(const std::string& bytes) {
  const std::string text = bytes.c_str();
  std::string converted;
  fuzz::Quickly(text, [&] { converted = trace::MessageToUtf8(text.c_str()); });
  HOLDS(converted.size() <= text.size() / 2 * 3 + 3);

  static char buffer[trace::TRACE_LINE_SIZE];
  trace::TraceText line(buffer);
  trace::BeginOrdinaryLine(&line, trace::TraceSecondOf({}), 0, 9, 7, {"file", "function", 1});
  const size_t head = line.Size();
  line.Add(converted).Add("]\n");
  HOLDS(line.Size() == std::min(head + converted.size() + 2, sizeof buffer - 1));
  HOLDS(!trace::IsPlainMessage(text) || (converted == text && trace::AsPrintFormat(text) == text));

  // The expansion halves each doubled percent sign and changes nothing else.
  std::string doubled;
  for (const char c : text) doubled += c == '%' ? "%%" : std::string(1, c);
  HOLDS(trace::AsPrintFormat(doubled) == text);
}

namespace {

// Against sscanf.
void CheckStat(const std::string& text) {
  const auto counters = sysinfo::ParseStat(text);
  const char* const name_end = std::strrchr(text.c_str(), ')');
  sysinfo::StatCounters scanned{};
  const bool whole =
      name_end != nullptr &&
      std::sscanf(name_end + 1,
                  "%*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %lu %lu %*s %*s %*s %ld %*s %*s %*s %*s %lu",
                  &scanned.utime, &scanned.stime, &scanned.nice, &scanned.pages) == 4;
  HOLDS(counters.has_value() == whole);
  HOLDS(!whole || std::memcmp(&*counters, &scanned, sizeof scanned) == 0);
}

void CheckCommandLine(std::string text) {
  uint32_t count = 0;
  char** words = nullptr;
  const int result = __qxapi_command_line_decoder__(text.data(), text.size(), &count, &words);
  const base::UniqueText owner(reinterpret_cast<char*>(words));
  HOLDS(result == (text.empty() ? -1 : 1));
  const char* next = text.data();
  for (uint32_t i = 0; i < count; next += std::strlen(next) + 1, ++i) HOLDS(words[i] == next);
  HOLDS(next >= text.data() + text.size());
}

}  // namespace

// The files of a process: status, stat and command line.
void fuzz_proc(const std::string& text) {
  sysinfo::StatusFields fields;
  fuzz::Quickly(text, [&] { sysinfo::ParseStatus(text, &fields); });
  if (fields.name) {
    HOLDS(text.find(*fields.name) != text.npos);
    HOLDS(fields.name->find_first_of(std::string_view("\n\0", 2)) == text.npos);
  }
  CheckStat(text);
  CheckCommandLine(text);
  const char* cursor = text.c_str();
  while (*cursor != '\0') base::UniqueText(__qxapi_get_word_sep__(":\n", &cursor));
  HOLDS(cursor == text.c_str() + std::strlen(text.c_str()));
}

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
  const size_t step = piece * smtp_base64_lines_writer::TWO_BASE64_LINES_DATA;
  for (size_t at = 0; at < data.size(); at += step) {
    HOLDS(writer.AddBase64Lines(data.data() + at, std::min(step, data.size() - at)) == 0);
  }
  const base::UniqueText lines = writer.FinishBase64Lines(&length);
  HOLDS(std::string_view(lines.get(), length) == expected + "\r\n");
  // The slower implementation. On a processor without SSSE3 it is the same one.
  for (size_t at = 0; at + writer.TWO_BASE64_LINES_DATA < data.size(); at += writer.TWO_BASE64_LINES_DATA) {
    char by_table[160];
    smtp_base64_two_lines_by_table(reinterpret_cast<const unsigned char*>(data.data() + at), by_table);
    HOLDS(std::memcmp(lines.get() + at / writer.TWO_BASE64_LINES_DATA * sizeof by_table, by_table,
                      sizeof by_table) == 0);
  }
}

}  // namespace

// Folded headers, doubled dots, split lines, base64, and the texts that a session accepts. The first byte
// chooses widths and sizes.
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
