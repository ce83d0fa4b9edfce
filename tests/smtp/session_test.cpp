// The dialogue up to the mail: replies, time-outs, bounds, AUTH, close.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <csignal>
#include <ctime>
#include <string>
#include <tuple>
#include <vector>

#include "base/stop.h"
#include "smtp/peer.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

const std::string GREETING = R"(send:220 hello\r\n)";
const std::vector<std::string> GREETED = {GREETING, "line", R"(send:250 hello\r\n)"};

std::vector<std::string> operator+(std::vector<std::string> steps, const std::vector<std::string>& more) {
  steps.insert(steps.end(), more.begin(), more.end());
  return steps;
}

// A session on one end of a socket pair.
struct Wire {
  smtp_session session;
  base::UniqueFd peer;

  Wire() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    session.sock.Reset(ends[0]);
    peer.Reset(ends[1]);
    session.reader.read = smtp_str_getdelimfd_read;
    session.reader.userData = &session;
    smtp_set_read_timeout(&session, 1);
  }
  void Say(const std::string& text) const { ::send(peer.Get(), text.data(), text.size(), MSG_NOSIGNAL); }
};

TEST(SmtpStatus, TextsAndLimits) {
  smtp_session session;
  EXPECT_EQ(smtp_status_code_set(&session, 11), 11);
  EXPECT_EQ(smtp_status_code_clear(&session), 11);
  EXPECT_EQ(smtp_status_code_get(&session), 0);
  EXPECT_EQ(smtp_status_code_set(&session, 12), 9);
  EXPECT_EQ(smtp_status_code_set(&session, -1), 9);
  EXPECT_STREQ(smtp_status_code_errstr(8), "SMTP server sent back an unexpected status code");
  for (const int code : {12, 13, -1}) EXPECT_STREQ(smtp_status_code_errstr(code), "Unknown error");
}

TEST(SmtpReply, TakesLinesApart) {
  const std::vector<std::tuple<std::string, int, bool, std::string>> cases = {
      {"250 ok", 250, false, "ok"},
      {"250-ok", 250, true, "ok"},
      {"250xok", 250, false, "ok"},
      {"354", -1, false, "354"},
      {"354 ", -1, false, "354 "},
      {"354  ", 354, false, " "},
      {"250-", -1, false, "250-"},
      {"550 5.1.1 unknown", -1, false, "5.1.1 unknown"},
      {"355 no", -1, false, "no"},
      {"25a ok", -1, false, "ok"},
      {"abc-more", -1, true, "more"},
      {"+25 ok", -1, false, "ok"},
      {"", -1, false, ""},
      {"099 ok", 99, false, "ok"},
  };
  for (const auto& [line, code, more, text] : cases) {
    const auto reply = smtp_parse_cmd_line(line);
    EXPECT_EQ(std::tuple(reply.code, reply.more, std::string(reply.text)), std::tuple(code, more, text))
        << line;
  }
}

TEST(SmtpReply, TheLastLineDecides) {
  const std::vector<std::pair<std::string, int>> cases = {
      {"250-first\r\n250 last\r\n", 250},
      {"250-first\r\n354 last\r\n", 354},
      {"354-a\r\n554 b\r\n", -1},
      {"250 ok\n", 250},  // the carriage return is cut without a look
      {"250 k\n", -1},
      {"\n", -1},
      {"250-half", 250},  // ended by the hang-up, which also takes its last character
      {"354 g", -1},
      {"", -1},
  };
  for (const auto& [said, code] : cases) {
    Wire wire;
    wire.Say(said);
    ::shutdown(wire.peer.Get(), SHUT_WR);
    EXPECT_EQ(smtp_read_and_parse_code(&wire.session), code) << said;
    EXPECT_EQ(wire.session.status, 0) << said;
  }
}

TEST(SmtpReply, OneReadMayHoldSeveralLines) {
  Wire wire;
  wire.Say("250 one\r\n354 " + std::string(3000, 'x') + "\r\n235 th");
  EXPECT_EQ(smtp_read_and_parse_code(&wire.session), 250);
  EXPECT_EQ(smtp_read_and_parse_code(&wire.session), 354);
  wire.Say("ree\r\n");
  EXPECT_EQ(smtp_read_and_parse_code(&wire.session), 235);
  EXPECT_STREQ(wire.session.reader.line.get(), "235 three");
}

TEST(SmtpReply, EndlessLinesAndRepliesAreGivenUp) {
  static size_t handed;
  handed = 0;
  smtp_line_reader reader;
  reader.read = [](smtp_line_reader*, char* destination, size_t count) {
    std::fill_n(destination, count, 'a');
    handed += count;
    return static_cast<ptrdiff_t>(count);
  };
  EXPECT_EQ(smtp_str_getdelimfd(&reader), SMTP_LINE_FAILED);
  EXPECT_LT(handed, SMTP_LINE_LIMIT + 2 * SMTP_READ_SIZE);
  EXPECT_EQ(reader.buffer, nullptr);

  smtp_session session;
  session.reader.read = [](smtp_line_reader*, char* destination, size_t) {
    std::fill_n(destination, 6, '-');
    destination[6] = '\n';
    return ptrdiff_t{7};
  };
  EXPECT_EQ(smtp_read_and_parse_code(&session), -1);
  EXPECT_EQ(session.status, SMTP_RECEIVE_FAILED);
}

TEST(SmtpReply, SilenceCostsTheTimeout) {
  Wire wire;
  wire.Say("250 half a line");
  const auto start = Clock::now();
  EXPECT_EQ(smtp_read_and_parse_code(&wire.session), -1);
  EXPECT_EQ(wire.session.status, SMTP_RECEIVE_FAILED);
  EXPECT_GE(Clock::now() - start, seconds(1));
  EXPECT_LT(Clock::now() - start, seconds(10));
}

TEST(SmtpWrite, APeerThatTakesNothingCostsTheTimeout) {
  Wire wire;
  const std::string text(8'000'000, 'x');
  const auto start = Clock::now();
  EXPECT_EQ(smtp_write(&wire.session, text.data(), text.size()), SMTP_SEND_FAILED);
  EXPECT_LT(Clock::now() - start, seconds(10));
  EXPECT_EQ(smtp_write(&wire.session, text.data(), SMTP_WRITE_LIMIT + 1), SMTP_SEND_FAILED);
}

TEST(SmtpWrite, WithTlsOnNothingMoves) {
  Wire wire;
  wire.session.tls_on = 1;
  EXPECT_EQ(smtp_puts(&wire.session, "text"), 0);
  EXPECT_EQ(smtp_getline(&wire.session), SMTP_LINE_END);
  char byte = 0;
  EXPECT_EQ(::recv(wire.peer.Get(), &byte, 1, MSG_DONTWAIT), -1);
}

TEST(SmtpDebug, PrintsBothSidesOnlyWithTheFlag) {
  for (const unsigned flags : {0U, 2U, 1U, 3U}) {
    Wire wire;
    wire.session.flags = flags;
    wire.Say("250 o\rk\r\n");
    testing::internal::CaptureStderr();
    smtp_puts(&wire.session, "EHLO smtp\r\n");
    smtp_getline(&wire.session);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              flags % 2 == 0 ? "" : "[smtp Client]: EHLO smtp  \n[smtp Server]: 250 o k\n");
  }
}

TEST(SmtpOpen, NeitherGreetingNorEhloCodesCount) {
  const std::vector<std::vector<std::string>> cases = {
      {GREETING, "line", R"(send:250-a\r\n250 b\r\n)"},
      {R"(send:554 go away\r\n)", "line", R"(send:502 what\r\n)"},
      {R"(send:220-a\r\n220 b\r\n)", "line"},  // the second line is taken for the reply to EHLO
      {R"(send:220 h)", "shut"},
  };
  for (const auto& steps : cases) {
    MailPeer peer(steps);
    smtp_session* session = nullptr;
    EXPECT_EQ(peer.Open(&session), 0);
    EXPECT_EQ(session->readTimeout, 300);
    EXPECT_EQ(smtp_close(session), 0);
    EXPECT_EQ(peer.Received(), "EHLO smtp\r\nQUIT\r\n");
  }
}

TEST(SmtpOpen, FailuresOfTheHandshakeAreOneStatus) {
  for (const auto& steps : std::vector<std::vector<std::string>>{
           {"flood:a"}, {GREETING, "line", "flood:a"}, {GREETING, "line", R"(flood:250-x\r\n)"}}) {
    MailPeer peer(steps);
    smtp_session* session = nullptr;
    EXPECT_EQ(peer.Open(&session), SMTP_HANDSHAKE_FAILED);
    EXPECT_EQ(smtp_close(session), SMTP_HANDSHAKE_FAILED);
  }
}

TEST(SmtpOpen, ASilentServerDoesNotHoldAStop) {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  MailPeer peer({GREETING, "line"});
  {
    const base::StopOnPendingSignal cut;
    ::kill(::getpid(), SIGTERM);
    smtp_session* session = nullptr;
    const int status = peer.Open(&session);
    EXPECT_TRUE(status == SMTP_HANDSHAKE_FAILED || status == SMTP_CONNECT_FAILED);
    EXPECT_EQ(smtp_close(session), status);
  }
  const timespec none{};
  EXPECT_EQ(::sigtimedwait(&stop, nullptr, &none), SIGTERM);
  ::pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
}

TEST(SmtpOpen, NobodyListens) {
  const base::UniqueFd bound(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  socklen_t length = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(::bind(bound.Get(), generic, length), 0);
  ASSERT_EQ(::getsockname(bound.Get(), generic, &length), 0);
  for (const char* server : {"127.0.0.1", "a..b"}) {
    smtp_session* session = nullptr;
    EXPECT_EQ(smtp_open(server, std::to_string(ntohs(address.sin_port)).c_str(), 0, 0, "ca.pem", &session),
              SMTP_CONNECT_FAILED);
    EXPECT_EQ(smtp_auth(session, SMTP_METHOD_PLAIN, "u", "p"), SMTP_CONNECT_FAILED);
    EXPECT_EQ(smtp_close(session), SMTP_CONNECT_FAILED);
  }
}

struct AuthCase {
  int method;
  std::vector<std::string> steps;
  int status;
  std::string sent;
};

TEST(SmtpAuth, SendsAndExpects) {
  const std::string ok = R"(send:235 in\r\n)";
  const std::string prompt = R"(send:334 UGFzc3dvcmQ6\r\n)";
  const std::string plain = "AUTH PLAIN AHVzZXIAcGFzcw==\r\n";
  const std::string login = "AUTH LOGIN dXNlcg==\r\n";
  const std::vector<AuthCase> cases = {
      {1, {}, 0, ""},
      {4, {}, SMTP_INVALID, ""},
      {0, {}, SMTP_INVALID, ""},
      {2, {"line", ok}, 0, plain},
      {2, {"line", R"(send:235-a\r\n235 b\r\n)"}, 0, plain},
      {2, {"line", R"(send:535 no\r\n)"}, SMTP_AUTH_FAILED, plain},
      {2, {"line", R"(send:250 ok\r\n)"}, SMTP_AUTH_FAILED, plain},
      {2, {"line", "flood:x"}, SMTP_AUTH_FAILED, plain},
      {2, {"line", "shut"}, SMTP_AUTH_FAILED, plain},
      {3, {"line", prompt, "line", ok}, 0, login + "cGFzcw==\r\n"},
      {3, {"line", R"(send:504 no\r\n)"}, SMTP_AUTH_FAILED, login},
      {3, {"line", prompt, "line", R"(send:535 no\r\n)"}, SMTP_AUTH_FAILED, login + "cGFzcw==\r\n"},
  };
  for (const AuthCase& c : cases) {
    MailPeer peer(GREETED + c.steps);
    smtp_session* session = nullptr;
    ASSERT_EQ(peer.Open(&session), 0);
    EXPECT_EQ(smtp_auth(session, c.method, "user", "pass"), c.status);
    EXPECT_EQ(smtp_close(session), c.status);
    const std::string sent = peer.Received();
    EXPECT_EQ(sent.substr(0, 11 + c.sent.size()), "EHLO smtp\r\n" + c.sent);
    if (c.steps.empty() || c.steps.back() != "flood:x") {
      EXPECT_EQ(sent.substr(11 + c.sent.size()), "QUIT\r\n");
    }
  }
}

TEST(SmtpClose, AServerThatIsGoneFailsTheQuit) {
  Wire wire;
  auto* session = new smtp_session(std::move(wire.session));
  wire.peer.Reset();
  EXPECT_EQ(smtp_close(session), SMTP_SEND_FAILED);
}

TEST(SmtpClose, AClosedDescriptorIsReported) {
  auto* session = new smtp_session;
  session->tls_on = 1;  // sends nothing, so that only the close can fail
  const int number = ::dup(2);
  session->sock.Reset(number);
  ::close(number);
  EXPECT_EQ(smtp_close(session), SMTP_CLOSE_FAILED);
}

}  // namespace
