// The dialogue with a mail server, byte for byte, and what each of its failures comes to.
#include <gtest/gtest.h>

#include "smtp/peer.h"

namespace {

using Replies = std::vector<std::string>;

const std::string OK = "250 ok";
const std::string GO = "354 go";

// The replies to the connection and to EHLO, then these.
Replies Greeted(const Replies& more) {
  Replies all = {"220 hello", "250 hello"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

TEST(SmtpStatus, TextsAndLimits) {
  smtp_session session;
  EXPECT_EQ(smtp_status_code_set(&session, 12), SMTP_INVALID);
  EXPECT_EQ(smtp_status_code_clear(&session), SMTP_INVALID);
  EXPECT_EQ(smtp_status_code_get(&session), 0);
  EXPECT_STREQ(smtp_status_code_errstr(0), "Success");
  EXPECT_STREQ(smtp_status_code_errstr(11), "Failed to get the local date and time");
  for (const int code : {12, 13, -1}) EXPECT_STREQ(smtp_status_code_errstr(code), "Unknown error");
}

TEST(SmtpWire, SilenceCostsTheTimeout) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const base::UniqueFd peer(ends[1]);
  smtp_session session;
  session.sock.Reset(ends[0]);
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
  const struct {
    int (*add)(smtp_session*, const char*);
    std::vector<const char*> good;
    std::vector<const char*> bad;
  } rules[] = {
      {key, {"X-Key", "!~"}, {nullptr, "", "a b", "a:b", "a\tb", "k\x7f", "k\xC3\xA9", "k\r\nX"}},
      {value, {nullptr, "", " a\tb ~", "\xB0\xA1\x80\xFF", "a: \"<>"}, {"a\nb", "a\rb", "\x01", "a\x7f"}},
      {email, {"", "a@b", "\xEA\xB0\x80@b", "a\"b"}, {nullptr, "a b", "a\tb", "<a", "a>", "a\r\nb", "\x7f"}},
      {name, {nullptr, "", "A B <'>", "\xEA\xB0\x80"}, {"a\"b", "a\tb", "a\nb", "\x7f"}},
      {file, {"", "a b.txt", "\xEA\xB0\x80", "a<b>"}, {nullptr, "a'b", "a\"b", "a\tb", "a\r\nb", "\x7f"}},
  };
  for (const auto& rule : rules) {
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
}

TEST(SmtpOpen, WhatTheHandshakeAccepts) {
  const std::pair<Replies, int> cases[] = {
      {{"554 go away", "502 what"}, 0},
      {{"220-a\r\n220 b"}, 0},  // the second line is taken for the reply to EHLO
      {{"end"}, 0},
      {{"flood a"}, SMTP_HANDSHAKE_FAILED},
      {{"220 hello", "flood 250-x\r\n"}, SMTP_HANDSHAKE_FAILED},
  };
  for (const auto& [replies, status] : cases) {
    MailPeer peer(replies);
    smtp_session* session = nullptr;
    EXPECT_EQ(peer.Open(&session), status) << replies.back();
    EXPECT_EQ(session->readTimeout, 300);
    EXPECT_EQ(smtp_close(session), status);
    EXPECT_TRUE(status != 0 || peer.Received() == "EHLO smtp\r\nQUIT\r\n") << peer.Received();
  }
}

TEST(SmtpAuth, SendsAndExpects) {
  const std::string plain = "AUTH PLAIN AHVzZXIAcGFzcw==\r\n";
  const std::string login = "AUTH LOGIN dXNlcg==\r\n";
  const struct {
    int method;
    Replies replies;
    int status;
    std::string sent;
  } cases[] = {
      {1, {}, 0, ""},
      {4, {}, SMTP_INVALID, ""},
      {2, {"235-a\r\n235 b"}, 0, plain},
      {2, {"250 ok"}, SMTP_AUTH_FAILED, plain},
      {2, {"end"}, SMTP_AUTH_FAILED, plain},
      {3, {"334 UGFzc3dvcmQ6", "235 in"}, 0, login + "cGFzcw==\r\n"},
      {3, {"504 no"}, SMTP_AUTH_FAILED, login},
      {3, {"334 UGFzc3dvcmQ6", "535 no"}, SMTP_AUTH_FAILED, login + "cGFzcw==\r\n"},
  };
  for (const auto& c : cases) {
    MailPeer peer(Greeted(c.replies));
    smtp_session* session = nullptr;
    ASSERT_EQ(peer.Open(&session), 0);
    EXPECT_EQ(smtp_auth(session, c.method, "user", "pass"), c.status);
    EXPECT_EQ(smtp_close(session), c.status);
    EXPECT_EQ(peer.Received(), "EHLO smtp\r\n" + c.sent + "QUIT\r\n");
  }
}

TEST(SmtpMail, IsPrintedByteForByte) {
  MailPeer peer(Greeted({OK, "550 no", OK, OK, OK, GO, OK}));
  smtp_session* session = nullptr;
  ASSERT_EQ(peer.Open(&session), 0);
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
  std::string boundary = sent.substr(sent.find("boundary=") + 9, 14);
  EXPECT_EQ(boundary.substr(0, 4), "mime");
  EXPECT_EQ(boundary.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ", 4), std::string::npos);
  for (size_t at = 0; (at = sent.find(boundary, at)) != std::string::npos;) sent.replace(at, 14, "BOUNDARY");
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

// A mail whose caller says what its body is.
int SendPlain(MailPeer* peer, const char* sender, int* timeout) {
  smtp_session* session = nullptr;
  EXPECT_EQ(peer->Open(&session), 0);
  if (sender != nullptr) smtp_address_add(session, SMTP_ADDRESS_FROM, sender, nullptr);
  smtp_address_add(session, SMTP_ADDRESS_TO, "b@y", "");
  smtp_header_add(session, "Date", "today");
  smtp_header_add(session, "Content-Type", "text/plain");
  smtp_attachment_add_mem(session, "a.txt", "a", 1);
  const int status = smtp_mail(session, "\nbody\n.dot");
  *timeout = static_cast<int>(session->readTimeout);
  EXPECT_EQ(smtp_close(session), status);
  return status;
}

TEST(SmtpMail, ACallersContentTypeLeavesTheBodyAlone) {
  MailPeer peer(Greeted({OK, OK, GO, OK}));
  int timeout = 0;
  EXPECT_EQ(SendPlain(&peer, "a@x", &timeout), 0);
  EXPECT_EQ(peer.Received().substr(peer.Received().find("DATA")),
            "DATA\r\nContent-Type: text/plain\r\nDate: today\r\nFrom: <a@x>\r\n"
            "To: <b@y>\r\n\nbody\n..dot\r\n.\r\nQUIT\r\n");
}

TEST(SmtpMail, OnlyDataAndTheDotHaveRepliesThatCount) {
  const struct {
    Replies replies;
    int status, timeout;
  } cases[] = {
      {{"550 no", "x", GO, OK}, 0, 600},
      {{OK, OK, "354"}, SMTP_UNEXPECTED_CODE, 120},
      {{OK, OK, "250 ok"}, SMTP_UNEXPECTED_CODE, 120},
      {{OK, OK, "flood x"}, SMTP_RECEIVE_FAILED, 120},
      {{OK, OK, GO, "552 too big"}, SMTP_UNEXPECTED_CODE, 600},
      {{OK, OK, GO, "end"}, SMTP_UNEXPECTED_CODE, 600},
      {{OK, OK, GO, "flood 250-x\r\n"}, SMTP_RECEIVE_FAILED, 600},
      {{"flood x"}, SMTP_RECEIVE_FAILED, 300},
      {{"end"}, SMTP_UNEXPECTED_CODE, 120},
  };
  for (const auto& c : cases) {
    MailPeer peer(Greeted(c.replies));
    int timeout = 0;
    EXPECT_EQ(SendPlain(&peer, "a@x", &timeout), c.status) << c.replies.back();
    EXPECT_EQ(timeout, c.timeout) << c.replies.back();
  }
  for (const char* sender : {"bad address", static_cast<const char*>(nullptr)}) {
    MailPeer peer(Greeted({}));
    int timeout = 0;
    EXPECT_EQ(SendPlain(&peer, sender, &timeout), SMTP_INVALID);
    EXPECT_EQ(peer.Received(), "EHLO smtp\r\nQUIT\r\n");
  }
}

}  // namespace
