// The dialogue with a mail server, byte for byte, and the status after each failure; texts, dates and files
// of mails. The fuzz target "mail" checks the texts' round trips, and that none adds a line to the mail.
#include <gtest/gtest.h>

#include <cerrno>
#include <regex>

#include "smtp/smtp_base64.h"
#include "smtp/smtp_file.h"
#include "smtp/smtp_headers.h"
#include "smtp/smtp_reply.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"
#include "smtp/smtp_write.h"
#include "support/support.h"

namespace {

const std::string OK = "250 ok";
const std::string GO = "354 go";

// A mail server that sends all its replies at once and keeps what it receives. "flood TEXT" repeats the text
// for ever, "end" closes its side.
class MailPeer {
 public:
  explicit MailPeer(const std::vector<std::string>& replies)
      : peer_([this, replies](int fd) {
          for (const std::string& reply : replies) {
            if (reply == "end") {
              ::shutdown(fd, SHUT_WR);
            } else if (reply.starts_with("flood ")) {
              while (::send(fd, reply.data() + 6, reply.size() - 6, MSG_NOSIGNAL) > 0) continue;
            } else {
              support::Send(fd, reply + "\r\n");
            }
          }
          received_ = support::Receive(fd, 1'000'000);
        }) {}
  // Opens a session with this server. The test closes it.
  smtp_session* Open() const {
    smtp_session* session = nullptr;
    smtp_open("127.0.0.1", std::to_string(peer_.Port()).c_str(), 0, 0, nullptr, &session);
    return session;
  }
  // Waits until the client has closed. Returns everything that it sent.
  const std::string& Received() {
    peer_.Finish();
    return received_;
  }

 private:
  std::string received_;
  support::Conversation peer_;
};

TEST(SmtpWire, ReadsAndWritesEndAtTheTimeOut) {
  smtp_session session;
  auto [near, peer] = support::SocketPair();
  session.sock.Reset(near.Release());
  session.reader.read = smtp_str_getdelimfd_read;
  session.reader.userData = &session;
  smtp_set_read_timeout(&session, 1);
  support::Send(peer.Get(), "250 half a line");
  EXPECT_EQ(smtp_read_and_parse_code(&session), -1);
  EXPECT_EQ(session.status, SMTP_RECEIVE_FAILED);
  const std::string text(8'000'000, 'x');
  EXPECT_EQ(smtp_write(&session, text.data(), text.size()), SMTP_SEND_FAILED);
}

TEST(SmtpLists, RefusesTextsThatBreakTheirRule) {
  const auto key = [](smtp_session* s, const char* text) { return smtp_header_add(s, text, "v"); };
  const auto value = [](smtp_session* s, const char* text) { return smtp_header_add(s, "Key", text); };
  const auto email = [](smtp_session* s, const char* text) { return smtp_address_add(s, 1, text, "n"); };
  const auto name = [](smtp_session* s, const char* text) { return smtp_address_add(s, 1, "a@b", text); };
  const auto file = [](smtp_session* s, const char* text) {
    return smtp_attachment_add_mem(s, text, "d", 1);
  };
  using Add = int (*)(smtp_session*, const char*);
  const std::tuple<Add, const char*, std::vector<const char*>> rules[] = {
      {key, "!~", {nullptr, "", "a b", "a:b", "k\xC3\xA9"}},
      {value, " a\tb: \"<\xB0\xA1>", {"\x01", "a\x7f"}},
      {email, "\xEA\xB0\x80\"@b", {nullptr, "a b", "<a", "a>"}},
      {name, "A <'\xEA\xB0\x80>", {"a\"b", "a\tb"}},
      {file, "a <\xEA\xB0\x80>", {nullptr, "a'b", "a\"b"}}};
  for (const auto& [add, good, bad] : rules) {
    smtp_session sound;
    EXPECT_EQ(add(&sound, good), 0) << good;
    for (const char* text : bad) {
      smtp_session session;
      EXPECT_EQ(add(&session, text), SMTP_INVALID) << (text == nullptr ? "null" : text);
      EXPECT_EQ(session.headers.size() + session.addresses.size() + session.attachments.size(), 0U);
      EXPECT_EQ(smtp_header_add(&session, "Fine", "v"), SMTP_INVALID);  // the status stays
    }
  }
}

TEST(SmtpMail, IsSentByteForByte) {
  MailPeer peer({"220 hello", OK, OK, "550 no", OK, OK, OK, GO, OK});
  smtp_session* session = peer.Open();
  smtp_address_add(session, SMTP_ADDRESS_BCC, "h@y", "Hidden");
  smtp_address_add(session, SMTP_ADDRESS_TO, "b@y", "");
  smtp_address_add(session, SMTP_ADDRESS_FROM, "a@x", "The Agent");
  smtp_address_add(session, SMTP_ADDRESS_CC, "\xEA\xB0\x80@y", "Cee");
  smtp_address_add(session, SMTP_ADDRESS_TO, "c@y", "Two");
  smtp_header_add(session, "date", "lower");
  smtp_header_add(session, "Subject", ("s " + std::string(90, 'x')).c_str());
  smtp_header_add(session, "Subject", "again");
  smtp_header_add(session, "Date", "today");
  smtp_header_add(session, "X-None", nullptr);
  smtp_attachment_add_mem(session, "a.txt", std::string(100, 'a').c_str(), SMTP_TEXT_LENGTH);
  EXPECT_EQ(smtp_mail(session, ".one\n.two\r\n..three"), 0);
  EXPECT_EQ(smtp_close(session), 0);

  std::string sent = peer.Received();
  const std::string boundary = sent.substr(sent.find("boundary=") + 9, 14);
  EXPECT_TRUE(std::regex_match(boundary, std::regex("mime[A-Z]{10}"))) << boundary;
  sent = std::regex_replace(sent, std::regex(boundary), "BOUNDARY");
  std::string line;
  for (int i = 0; i < 33; ++i) line += "YWFh";
  EXPECT_EQ(
      sent,
      "EHLO smtp\r\nMAIL FROM:<a@x>\r\nRCPT TO:<h@y>\r\nRCPT TO:<b@y>\r\n"
      "RCPT TO:<\xEA\xB0\x80@y> SMTPUTF8\r\nRCPT TO:<c@y>\r\nDATA\r\n"
      "Cc: \"Cee\" <\xEA\xB0\x80@y>\r\nDate: today\r\nFrom: \"The Agent\" <a@x>\r\n"
      "Subject: s\r\n " +
          std::string(90, 'x') +
          "\r\nSubject: again\r\n"
          "To: <b@y>, \"Two\" <c@y>\r\ndate: lower\r\n"
          "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=BOUNDARY\r\n\r\n"
          "Multipart MIME message.\r\n--BOUNDARY\r\n"
          "Content-Type: text/html; charset=\"UTF-8\"\r\n\r\n.one\n..two\r\n...three\r\n\r\n--BOUNDARY\r\n"
          "Content-Type: application/octet-stream\r\n"
          "Content-Disposition: attachment; filename=\"a.txt\"\r\n"
          "Content-Transfer-Encoding: base64\r\n\r\n" +
          line.substr(0, 78) + "\r\n" + line.substr(78) + "YQ==\r\n\r\n\r\n--BOUNDARY--\r\n.\r\nQUIT\r\n");
}

TEST(SmtpMail, EndsWithTheStatusOfTheFirstFailure) {
  const std::string HELLO = "220 hello";
  const std::string plain = "AUTH PLAIN AHVzZXIAcGFzcw==\r\n";
  const std::string login = "AUTH LOGIN dXNlcg==\r\n";
  const std::string envelope = "MAIL FROM:<a@x>\r\nRCPT TO:<b@y>\r\nDATA\r\n";
  const std::string mail =
      envelope +
      "Content-Type: text/plain\r\nDate: today\r\nFrom: <a@x>\r\nTo: <b@y>\r\n\nbody\n..dot\r\n.\r\n";
  const struct {
    const char* what;
    int method;
    std::vector<std::string> replies;
    int status, timeout;
    std::string sent;  // between EHLO and QUIT; "?": unknown, because of the flood
    const char* sender = "a@x";
  } cases[] = {
      {"unchecked refusals", 1, {"554 away", "502 what", "550 no", "x", GO, OK}, 0, 600, mail},
      {"greeting without end", 1, {"flood a"}, SMTP_HANDSHAKE_FAILED, 300, "?"},
      {"EHLO reply without end", 1, {HELLO, "flood 250-x\r\n"}, SMTP_HANDSHAKE_FAILED, 300, "?"},
      {"PLAIN", 2, {HELLO, OK, "235-a\r\n235 b", OK, OK, GO, OK}, 0, 600, plain + mail},
      {"LOGIN", 3, {HELLO, OK, "334 a", "235 b", OK, OK, GO, OK}, 0, 600, login + "cGFzcw==\r\n" + mail},
      {"unknown method", 4, {HELLO, OK}, SMTP_INVALID, 300, ""},
      {"PLAIN, other code", 2, {HELLO, OK, OK}, SMTP_AUTH_FAILED, 300, plain},
      {"LOGIN, user refused", 3, {HELLO, OK, "504 no"}, SMTP_AUTH_FAILED, 300, login},
      {"password refused", 3, {HELLO, OK, "334 a", "535"}, SMTP_AUTH_FAILED, 300, login + "cGFzcw==\r\n"},
      {"DATA reply too short", 1, {HELLO, OK, OK, OK, "354"}, SMTP_UNEXPECTED_CODE, 120, envelope},
      {"mail refused", 1, {HELLO, OK, OK, OK, GO, "552 too big"}, SMTP_UNEXPECTED_CODE, 600, mail},
      {"no final reply", 1, {HELLO, OK, OK, OK, GO, "end"}, SMTP_UNEXPECTED_CODE, 600, mail},
      {"no sender", 1, {HELLO, OK}, SMTP_INVALID, 300, "", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MailPeer peer(c.replies);
    smtp_session* session = peer.Open();
    smtp_auth(session, c.method, "user", "pass");
    if (c.sender != nullptr) smtp_address_add(session, SMTP_ADDRESS_FROM, c.sender, nullptr);
    smtp_address_add(session, SMTP_ADDRESS_TO, "b@y", "");
    smtp_header_add(session, "Date", "today");
    smtp_header_add(session, "Content-Type", "text/plain");  // so the body is sent as it is
    smtp_attachment_add_mem(session, "a.txt", "a", 1);
    EXPECT_EQ(smtp_mail(session, "\nbody\n.dot"), c.status);
    EXPECT_EQ(session->readTimeout, c.timeout);
    EXPECT_EQ(smtp_close(session), c.status);
    EXPECT_TRUE(c.sent == "?" || peer.Received() == "EHLO smtp\r\n" + c.sent + "QUIT\r\n") << peer.Received();
  }
}

// The text of a result, or "(null)".
std::string Text(char* result) {
  const base::UniqueText owned(result);
  return owned == nullptr ? "(null)" : owned.get();
}

TEST(SmtpText, FoldsAtTheLastBlankBeforeTheLimit) {
  const std::string x(74, 'x');
  const std::string y(73, 'y');
  const std::pair<std::string, std::string> cases[] = {
      {"a " + y, "a " + y},                            // 75 characters: below the limit
      {"a " + y + " b", "a " + y + "\r\n b"},          // a blank at 75: still before it
      {"a " + x + " b", "a\r\n " + x + "\r\n b"},      // a blank at 76: cut at the one before
      {"a \t " + x + x, "a \t\r\n " + x + x},          // other blanks of a run stay on their line
      {"  " + x + x + " c", "  " + x + x + "\r\n c"},  // no cut at leading blanks
  };
  for (const auto& [line, folded] : cases) EXPECT_EQ(Text(smtp_fold_whitespace(line.c_str(), 78)), folded);
}

TEST(SmtpText, WritesDatesWithTheZoneInWholeHours) {
  tm moment{5, 4, 3, 2, 0, 124, 2, 0, 0, 0, nullptr};
  char date[32];
  for (const auto& [offset, zone] :
       {std::pair{0, "+0000"}, {32400, "+0900"}, {19800, "+0500"}, {-12600, "-0300"}}) {
    ASSERT_EQ(smtp_date_format(moment, offset, date), 0);
    EXPECT_EQ(date, "Tue, 02 Jan 2024 03:04:05 " + std::string(zone));
  }
  moment.tm_mon = 12;
  EXPECT_EQ(smtp_date_format(moment, 0, date), -1);
  ::setenv("TZ", "XST3:30", 1);
  ::tzset();
  ASSERT_EQ(smtp_date_rfc_2822(date), 0);
  EXPECT_STREQ(date + 26, "-0300");
}

TEST(SmtpText, EncodesFilesLikeMemoryWhateverTheSize) {
  const support::TempFolder folder;
  size_t length = 0;
  for (const size_t size : {0UL, 513UL, 59903UL, 59904UL, 59905UL, 200000UL}) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + i / 251);
    const std::string path = folder.Write("file", data);
    const std::string lines = Text(smtp_base64_lines(data.data(), size, &length));
    EXPECT_TRUE(Text(smtp_file_base64_lines(path.c_str(), &length)) == lines) << size;
    EXPECT_EQ(length, lines.size());
    const std::string encoded = Text(smtp_base64_encode(data.data(), size, &length));
    EXPECT_TRUE(Text(smtp_chunk_split(encoded.c_str(), 78, "\r\n")) == lines) << size;
  }
}

TEST(SmtpText, EncodesSpecialFiles) {
  const support::TempFolder folder;
  size_t length = 0;
  // Its size reads 0.
  EXPECT_EQ(Text(smtp_file_base64_lines("/proc/self/status", &length)).substr(0, 4), "TmFt");
  EXPECT_EQ(smtp_file_base64_lines(folder.Path().c_str(), &length), nullptr);
  EXPECT_EQ(errno, EISDIR);
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(Text(smtp_file_base64_lines((folder / "fifo").c_str(), &length)), "\r\n");
}

TEST(SmtpText, RefusesArraysThatOverflow) {
  EXPECT_EQ(smtp_reallocarray(nullptr, SIZE_MAX / 2 + 2, 2), nullptr) << "2 bytes when it wraps around";
}

}  // namespace
