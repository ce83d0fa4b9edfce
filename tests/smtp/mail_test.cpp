// What goes into a mail, and the dialogue that carries it.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <string>
#include <vector>

#include "smtp/peer.h"

namespace {

const std::string OK = R"(send:250 ok\r\n)";
const std::string GO = R"(send:354 go\r\n)";
const std::vector<std::string> GREETED = {R"(send:220 hello\r\n)", "line", OK};
const std::vector<std::string> ENVELOPE = {"line", OK, "line", OK};

std::vector<std::string> operator+(std::vector<std::string> steps, const std::vector<std::string>& more) {
  steps.insert(steps.end(), more.begin(), more.end());
  return steps;
}

// From one address to another, with a date of its own.
void AddLeast(smtp_session* session) {
  smtp_address_add(session, SMTP_ADDRESS_FROM, "a@x", nullptr);
  smtp_address_add(session, SMTP_ADDRESS_TO, "b@y", "");
  smtp_header_add(session, "Date", "today");
}

TEST(SmtpLists, RefusesTextsThatBreakTheirRule) {
  const auto key = [](smtp_session* s, const char* text) { return smtp_header_add(s, text, "v"); };
  const auto value = [](smtp_session* s, const char* text) { return smtp_header_add(s, "Key", text); };
  const auto email = [](smtp_session* s, const char* text) { return smtp_address_add(s, 1, text, "n"); };
  const auto name = [](smtp_session* s, const char* text) { return smtp_address_add(s, 1, "a@b", text); };
  const auto file = [](smtp_session* s, const char* text) {
    return smtp_attachment_add_mem(s, text, "d", 1);
  };
  struct Rule {
    int (*add)(smtp_session*, const char*);
    std::vector<const char*> good;
    std::vector<const char*> bad;
  };
  const std::vector<Rule> rules = {
      {key, {"X-Key", "!~"}, {nullptr, "", "a b", "a:b", "a\tb", "k\x7f", "k\xC3\xA9", "k\r\nX"}},
      {value, {nullptr, "", " a\tb ~", "\xB0\xA1\x80\xFF", "a: \"<>"}, {"a\nb", "a\rb", "\x01", "a\x7f"}},
      {email, {"", "a@b", "\xEA\xB0\x80@b", "a\"b"}, {nullptr, "a b", "a\tb", "<a", "a>", "a\r\nb", "\x7f"}},
      {name, {nullptr, "", "A B <'>", "\xEA\xB0\x80"}, {"a\"b", "a\tb", "a\nb", "\x7f"}},
      {file, {"", "a b.txt", "\xEA\xB0\x80", "a<b>"}, {nullptr, "a'b", "a\"b", "a\tb", "a\r\nb", "\x7f"}},
  };
  for (const Rule& rule : rules) {
    for (const char* text : rule.good) {
      smtp_session session;
      EXPECT_EQ(rule.add(&session, text), 0) << text;
    }
    for (const char* text : rule.bad) {
      smtp_session session;
      EXPECT_EQ(rule.add(&session, text), SMTP_INVALID) << (text == nullptr ? "null" : text);
      EXPECT_EQ(session.headers.size() + session.addresses.size() + session.attachments.size(), 0U);
      EXPECT_EQ(smtp_header_add(&session, "Fine", "v"), SMTP_INVALID);  // the session is lost
    }
  }
  smtp_session session;
  EXPECT_EQ(smtp_address_add(&session, 4, "a@b", nullptr), SMTP_INVALID);
}

TEST(SmtpLists, HeadersAreSortedByTheBytesOfTheirKeys) {
  smtp_session session;
  for (const char* key : {"To", "date", "Cc", "Subject", "Cc", "CC", "Date"})
    smtp_header_add(&session, key, key);
  std::string keys;
  for (const auto& header : session.headers) keys += header.key + " ";
  EXPECT_EQ(keys, "CC Cc Cc Date Subject To date ");
  EXPECT_EQ(smtp_header_exists(&session, "Date"), 1);
  EXPECT_EQ(smtp_header_exists(&session, "DATE"), 0);
  EXPECT_EQ(smtp_header_exists(&session, "Dat"), 0);
  smtp_header_clear_all(&session);
  EXPECT_EQ(smtp_header_exists(&session, "Date"), 0);
}

TEST(SmtpLists, AttachmentsComeFromMemoryFilesAndStreams) {
  smtp_session session;
  EXPECT_EQ(smtp_attachment_add_mem(&session, "t", "text", SMTP_TEXT_LENGTH), 0);
  EXPECT_EQ(smtp_attachment_add_path(&session, "e", "/dev/null"), 0);
  const base::UniqueFile stream(std::tmpfile());
  std::fputs("text", stream.get());
  std::rewind(stream.get());
  EXPECT_EQ(smtp_attachment_add_fp(&session, "f", stream.get()), 0);
  ASSERT_EQ(session.attachments.size(), 3U);
  EXPECT_STREQ(session.attachments[0].body.get(), "dGV4dA==\r\n");
  EXPECT_STREQ(session.attachments[1].body.get(), "\r\n");
  EXPECT_STREQ(session.attachments[2].body.get(), "dGV4dA==\r\n");
  for (const char* path : {"/", "/nonexistent/file"}) {
    smtp_status_code_clear(&session);
    EXPECT_EQ(smtp_attachment_add_path(&session, "a'", path), SMTP_FILE_FAILED);
  }
}

TEST(SmtpMail, IsPrintedByteForByte) {
  MailPeer peer(GREETED + std::vector<std::string>{"line", OK, "line", R"(send:550 no\r\n)", "line", OK,
                                                   "line", OK, "line", OK, "line", GO, "dot", OK});
  smtp_session* session = nullptr;
  ASSERT_EQ(peer.Open(&session), 0);
  smtp_address_add(session, SMTP_ADDRESS_BCC, "h@y", "Hidden");
  smtp_address_add(session, SMTP_ADDRESS_TO, "b@y", "");
  smtp_address_add(session, SMTP_ADDRESS_FROM, "a@x", "The Agent");
  smtp_address_add(session, SMTP_ADDRESS_CC, "\xEA\xB0\x80@y", "Cee");
  smtp_address_add(session, SMTP_ADDRESS_TO, "c@y", "Two");
  smtp_header_add(session, "Subject", ("s " + std::string(90, 'x')).c_str());
  smtp_header_add(session, "Date", "today");
  smtp_header_add(session, "X-None", nullptr);
  smtp_attachment_add_mem(session, "a.txt", std::string(100, 'a').data(), 100);
  EXPECT_EQ(smtp_mail(session, ".one\n.two\r\n..three"), 0);
  EXPECT_EQ(session->readTimeout, 600);
  EXPECT_EQ(smtp_close(session), 0);

  const std::string sent = peer.Received();
  const size_t at = sent.find("boundary=") + 9;
  const std::string boundary = sent.substr(at, sent.find('\r', at) - at);
  std::string lines;
  for (int i = 0; i < 33; ++i) lines += "YWFh";
  lines = lines.substr(0, 78) + "\r\n" + lines.substr(78) + "YQ==\r\n";
  EXPECT_EQ(sent,
            "EHLO smtp\r\nMAIL FROM:<a@x>\r\nRCPT TO:<h@y>\r\nRCPT TO:<b@y>\r\n"
            "RCPT TO:<\xEA\xB0\x80@y> SMTPUTF8\r\nRCPT TO:<c@y>\r\nDATA\r\n"
            "Cc: \"Cee\" <\xEA\xB0\x80@y>\r\nDate: today\r\nFrom: \"The Agent\" <a@x>\r\n"
            "Subject: s\r\n " +
                std::string(90, 'x') +
                "\r\nTo: <b@y>, \"Two\" <c@y>\r\n"
                "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=" +
                boundary + "\r\n\r\nMultipart MIME message.\r\n--" + boundary +
                "\r\nContent-Type: text/html; charset=\"UTF-8\"\r\n\r\n.one\n..two\r\n...three\r\n\r\n--" +
                boundary +
                "\r\nContent-Type: application/octet-stream\r\n"
                "Content-Disposition: attachment; filename=\"a.txt\"\r\n"
                "Content-Transfer-Encoding: base64\r\n\r\n" +
                lines + "\r\n\r\n--" + boundary + "--\r\n.\r\nQUIT\r\n");
}

TEST(SmtpMail, ACallersContentTypeLeavesTheBodyAlone) {
  MailPeer peer(GREETED + ENVELOPE + std::vector<std::string>{"line", GO, "dot", OK});
  smtp_session* session = nullptr;
  ASSERT_EQ(peer.Open(&session), 0);
  AddLeast(session);
  smtp_header_add(session, "Content-Type", "text/plain");
  smtp_attachment_add_mem(session, "a.txt", "a", 1);
  EXPECT_EQ(smtp_mail(session, "\nbody\n.dot"), 0);
  EXPECT_EQ(smtp_close(session), 0);
  const std::string sent = peer.Received();
  EXPECT_EQ(sent.substr(sent.find("DATA")),
            "DATA\r\nContent-Type: text/plain\r\nDate: today\r\nFrom: <a@x>\r\n"
            "To: <b@y>\r\n\nbody\n..dot\r\n.\r\nQUIT\r\n");
}

TEST(SmtpMail, OnlyDataAndTheDotAreAnswered) {
  struct Case {
    std::vector<std::string> steps;
    int status;
    int timeout;
  };
  const std::vector<std::string> refused = {"line", R"(send:550 no\r\n)", "line", R"(send:x\r\n)"};
  const std::vector<Case> cases = {
      {refused + std::vector<std::string>{"line", GO, "dot", OK}, 0, 600},
      {ENVELOPE + std::vector<std::string>{"line", R"(send:354\r\n)"}, SMTP_UNEXPECTED_CODE, 120},
      {ENVELOPE + std::vector<std::string>{"line", R"(send:250 ok\r\n)"}, SMTP_UNEXPECTED_CODE, 120},
      {ENVELOPE + std::vector<std::string>{"line", R"(send:554 no valid recipients\r\n)"},
       SMTP_UNEXPECTED_CODE, 120},
      {ENVELOPE + std::vector<std::string>{"line", "flood:x"}, SMTP_RECEIVE_FAILED, 120},
      {ENVELOPE + std::vector<std::string>{"line", GO, "dot", R"(send:552 too big\r\n)"},
       SMTP_UNEXPECTED_CODE, 600},
      {ENVELOPE + std::vector<std::string>{"line", GO, "dot", "shut"}, SMTP_UNEXPECTED_CODE, 600},
      {ENVELOPE + std::vector<std::string>{"line", GO, "dot", R"(flood:250-x\r\n)"}, SMTP_RECEIVE_FAILED,
       600},
      {{"line", "flood:x"}, SMTP_RECEIVE_FAILED, 300},
      {{"shut"}, SMTP_UNEXPECTED_CODE, 120},
  };
  for (const Case& c : cases) {
    MailPeer peer(GREETED + c.steps);
    smtp_session* session = nullptr;
    ASSERT_EQ(peer.Open(&session), 0);
    AddLeast(session);
    EXPECT_EQ(smtp_mail(session, "body"), c.status) << c.steps.back();
    EXPECT_EQ(session->readTimeout, c.timeout) << c.steps.back();
    EXPECT_EQ(smtp_close(session), c.status);
  }
}

TEST(SmtpMail, AFailedEntryOrAMissingSenderSendsNothing) {
  const auto badEntry = [](smtp_session* s) {
    AddLeast(s);
    smtp_address_add(s, SMTP_ADDRESS_CC, "bad address", nullptr);
  };
  const auto noSender = [](smtp_session* s) { smtp_address_add(s, SMTP_ADDRESS_TO, "b@y", nullptr); };
  for (void (*add)(smtp_session*) : {static_cast<void (*)(smtp_session*)>(badEntry), +noSender}) {
    MailPeer peer(GREETED);
    smtp_session* session = nullptr;
    ASSERT_EQ(peer.Open(&session), 0);
    add(session);
    EXPECT_EQ(smtp_mail(session, "body"), SMTP_INVALID);
    EXPECT_EQ(smtp_close(session), SMTP_INVALID);
    EXPECT_EQ(peer.Received(), "EHLO smtp\r\nQUIT\r\n");
  }
}

TEST(SmtpMail, DescriptorsAboveThoseOfSelect) {
  const rlimit limit{4096, 4096};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  MailPeer peer(GREETED + ENVELOPE + std::vector<std::string>{"line", GO, "dot", OK});
  std::vector<base::UniqueFd> taken;
  while (taken.empty() || taken.back().Get() < 1100) taken.emplace_back(::dup(2));
  smtp_session* session = nullptr;
  ASSERT_EQ(peer.Open(&session), 0);
  EXPECT_GT(session->sock.Get(), 1100);
  AddLeast(session);
  EXPECT_EQ(smtp_mail(session, std::string(819200, 'x').c_str()), 0);
  EXPECT_EQ(smtp_close(session), 0);
}

TEST(SmtpMail, ARealServerUnderstandsIt) {
  Peer server(MAIL_SINK, {});
  std::string data;
  for (unsigned i = 0; i < 300; ++i) data += static_cast<char>(i * 7);
  smtp_session* session = nullptr;
  ASSERT_EQ(smtp_open("localhost", server.Port(), 0, 0, nullptr, &session), 0);
  smtp_auth(session, SMTP_METHOD_PLAIN, "user", "pass word");
  smtp_address_add(session, SMTP_ADDRESS_FROM, "agent@example.com", "STT Agent");
  for (const char* to : {"one@example.com", "two@example.com", "three@example.com", "four@example.com"}) {
    smtp_address_add(session, SMTP_ADDRESS_TO, to, "Name");
  }
  smtp_address_add(session, SMTP_ADDRESS_BCC, "hidden@example.com", nullptr);
  smtp_header_add(session, "Subject", "Engine restarted");
  smtp_attachment_add_mem(session, "data.bin", data.data(), data.size());
  smtp_mail(session, "<p>\xEA\xB0\x80</p>\r\n.dot");
  EXPECT_EQ(smtp_close(session), 0);
  std::string hex;
  for (const char c : data) {
    const auto byte = static_cast<unsigned char>(c);
    hex += "0123456789abcdef"[byte >> 4];
    hex += "0123456789abcdef"[byte & 15];
  }
  EXPECT_EQ(
      server.Received(),
      "login user pass word\n"
      "envelope agent@example.com one@example.com two@example.com three@example.com four@example.com "
      "hidden@example.com\n"
      "headers Date From Subject To MIME-Version Content-Type\ndate True\n"
      "From STT Agent <agent@example.com>\n"
      "To Name <one@example.com>, Name <two@example.com>, Name <three@example.com>, Name <four@example.com>\n"
      "Cc None\nSubject Engine restarted\n"
      "text/html None 3c703eeab0803c2f703e0d0a2e646f740d0a\n"
      "application/octet-stream data.bin " +
          hex + "\ndefects 0\n");
}

}  // namespace
