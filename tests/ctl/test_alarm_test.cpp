// "test-alarm" tells the peer's own words: against peers that take, refuse, keep silent, close and garble.
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>

#include "system/harness.h"
#include "tls/certificates.h"

namespace harness {
namespace {

struct Row {
  const char* name;
  const char* mail;  // scripts of the three peers; null: that way is off; "sink ...": options of mail_sink.py
  const char* chat;
  const char* server;
  int status;
  std::vector<const char*> lines;  // that are told, each on a line of its own
  const char* config = "";         // {mail}: the mail server's port
};

constexpr const char* LOGIN = "SMTP_AUTH 2\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\n";

const Row ROWS[] = {
    {"AllTakeIt",
     "smtp",
     "http:200 1",
     "none",
     0,
     {"  ok          kim@example.com   250 more 2.1.5 Ok\n",
      "  ok          the message       250 2.0.0 queued as 4F1C2\n",
      "  note        the mail's longest line has ", "  ok          200 1\n", "  ok          OPEN_OK\n",
      "4 of 4 took it.\n"}},
    {"OneRecipientIsRefused",
     "smtp:lee@",
     nullptr,
     nullptr,
     1,
     {"  ok          kim@example.com   250 more 2.1.5 Ok\n",
      "  REFUSED     lee@example.com   550 5.1.1 Not here\n", "1 of 2 took it.\n"}},
    {"LoginIsRefused",
     "smtp:AUTH",
     nullptr,
     nullptr,
     2,
     {"  REFUSED     the login   550 5.1.1 Not here\n", "0 of 1 took it.\n"},
     LOGIN},
    {"LoginIsTaken", "smtp", nullptr, nullptr, 0, {"2 of 2 took it.\n"}, LOGIN},
    {"MailIsRefused",
     "smtp:DATA",
     nullptr,
     nullptr,
     2,
     {"  REFUSED     the message       550 5.1.1 Not here\n", "0 of 2 took it.\n"}},
    {"MailServerIsSilent", "silent", nullptr, nullptr, 2, {"  SILENT      the message   \n"}},
    {"MailServerIsAway",
     "away",
     nullptr,
     nullptr,
     2,
     {"  UNREACHABLE the message   Failed to connect to the mail server\n"}},
    {"MailCannotBeSent",
     "smtp",
     nullptr,
     nullptr,
     2,
     {"  NOT SENT    the message   Invalid parameter\n"},
     "SENDER_EMAIL a b\n"},
    {"TextDoesNotConvert",
     "smtp",
     "http:200 1",
     nullptr,
     2,
     {"  NOT SENT    the message   a text does not convert to UTF-8\n",
      "  NOT SENT    a text does not convert to UTF-8\n"},
     "PROC_NAME \xf9\xd4x\n"},
    {"UrlsServerIsToldPerRecipient",
     "sink --certificate {localhost} --user stt --password hush --refuse lee@example.com",
     nullptr,
     nullptr,
     1,
     {"mail    smtp://localhost:", "  NOT SENT    \"Han\" <<han>      a bracket or a blank in the address\n",
      "  ok          kim@example.com   250 OK\n",
      "  REFUSED     lee@example.com   550 5.1.1 Nobody 5.1.1 of that name\\x07\n",
      "  ok          the message       250 OK\n", "1 of 3 took it.\n"},
     "MAIL_URL smtp://localhost:{mail}\nMAIL_TLS 2\nSMTP_AUTH 2\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\n"},
    {"UrlsListsAreReadByTheLine",
     "smtp",
     nullptr,
     nullptr,
     0,
     {"  ok          park@example.com   250 ",
      "bcc.txt line 1 left out: a bracket or a blank in the address\n", "3 of 3 took it.\n"},
     "MAIL_URL smtp://localhost:{mail}\nMAIL_SKIP_BAD 1\n"},
    {"UrlsServerRefusesTheLogin",
     "sink --certificate {localhost} --smtps --user stt --password other",
     nullptr,
     nullptr,
     2,
     {"mail    smtps://localhost:",
      "  REFUSED     the login      535 5.7.8 Authentication credentials invalid\n", "0 of 1 took it.\n"},
     "MAIL_URL smtps://localhost:{mail}\nSMTP_AUTH 3\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\n"},
    // Hiding it must come to an end.
    {"ThePasswordIsAStar",
     "sink --certificate {localhost} --smtps --user stt --password other",
     nullptr,
     nullptr,
     2,
     {"  REFUSED     the login      535 5.7.8 Authentication credentials invalid\n"},
     "MAIL_URL smtps://localhost:{mail}\nSMTP_AUTH 2\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD *\n"},
    {"UrlsServerTakesNoLogin",
     "smtp",
     nullptr,
     nullptr,
     2,
     {"  REFUSED     the login      Login denied\n"},
     "MAIL_URL smtp://localhost:{mail}\nSMTP_AUTH 2\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\n"},
    {"UrlsServerIsAnother",
     "sink --certificate {server}",
     nullptr,
     nullptr,
     2,
     {"  UNREACHABLE the message    SSL: certificate subject name 'server' does not match target host name "
      "'localhost'\n"},
     "MAIL_URL smtp://localhost:{mail}\nMAIL_TLS 2\n"},
    {"UrlsServerIsSilent",
     "silent",
     nullptr,
     nullptr,
     2,
     {"  SILENT      the message    Operation timed out after "},
     "MAIL_URL smtp://localhost:{mail}\nMAIL_TIMEOUT 1\n"},
    {"UrlsServerIsAway",
     "away",
     nullptr,
     nullptr,
     2,
     {"  UNREACHABLE the message    Failed to connect to localhost port "},
     "MAIL_URL smtp://localhost:{mail}\n"},
    {"ChatRefuses",
     nullptr,
     "http:400 Bad payload",
     nullptr,
     2,
     {"  REFUSED     400 Bad payload\n", "  note        the agent counts this as delivered\n"}},
    {"ChatDenies",
     nullptr,
     "http:200 Webhook message delivery failed",
     nullptr,
     2,
     {"  DOUBTFUL    200 Webhook message delivery failed\n",
      "  note        the agent counts this as delivered\n"}},
    {"ChatTakesTheAdaptiveCard",
     nullptr,
     "http:202 ",
     nullptr,
     0,
     {"  ok          202\n"},
     "WEBHOOK_CARD 1\n"},
    {"ChatAnswersALine", nullptr, "http:200 1\n", nullptr, 0, {"  ok          200 1\n"}},
    {"ChatSaysNothing", nullptr, "close", nullptr, 2, {"  REFUSED     Empty reply from server\n"}},
    {"ChatGarbles", nullptr, "garble", nullptr, 2, {"  REFUSED     Received HTTP/0.9 when not allowed\n"}},
    {"ChatOutlastsTheAgent",
     nullptr,
     "silent",
     nullptr,
     2,
     {"  SILENT      Operation timed out after "},
     "WEBHOOK_TIMEOUT 1\n"},
    {"ChatHasNoAddress",
     nullptr,
     "http:200 1",
     nullptr,
     2,
     {"  NOT SENT    "},
     "WEBHOOK_SERVER_URL htps://chat.example.com/hidden\n"},
    {"ChatTakesTheForm", nullptr, "http:200 ok", nullptr, 0, {"  ok          200 ok\n"}, "WEBHOOK_APPS 2\n"},
    {"ChatRepeatsItsAddress",
     nullptr,
     "http:404 no hook hidden/a-long-key and a-long-key",
     nullptr,
     2,
     {"  REFUSED     404 no hook *** and ***\n"}},
    {"ChatIsSilent", nullptr, "silent", nullptr, 2, {"  SILENT      \n"}},
    {"ChatIsAway", nullptr, "away", nullptr, 2, {"  UNREACHABLE Failed to connect to 127.0.0.1 port "}},
    {"ServerIsSilent",
     nullptr,
     nullptr,
     "silent",
     2,
     {"  SILENT      no reply to OPEN\n",
      "  note        holds every report to the servers behind it for 60 s\n"}},
    {"ServerCloses", nullptr, nullptr, "close", 2, {"  REFUSED     closed without a reply\n"}},
    {"ServerGarbles", nullptr, nullptr, "garble", 2, {"  REFUSED     "}},
    {"ServerIsAway", nullptr, nullptr, "away", 2, {"  UNREACHABLE Connection refused\n"}},
    {"NobodyIsThere", nullptr, nullptr, nullptr, 3, {}},
};

class TestAlarm : public AllChannels, public testing::WithParamInterface<Row> {
 protected:
  // The port of a peer with that script; "away": one that refuses, "none": the management server of the
  // fixture.
  std::string PortOf(const char* name, const char* script) {
    if (std::string(script) == "away") return std::to_string(away_.Port());
    if (std::string(script) == "none") return server_.Port();
    std::istringstream text(script);
    const Words words(std::istream_iterator<std::string>(text), {});
    peers_.push_back(words[0] == "sink"
                         ? std::make_unique<Peer>(folder_, name, "mail_sink.py", Secured(words))
                         : std::make_unique<Peer>(folder_, name, "answers.py", Words{"--script", script}));
    return peers_.back()->Port();
  }
  // "{NAME}" becomes a file with that certificate and its key.
  Words Secured(const Words& words) {
    Words filled(words.begin() + 1, words.end());
    for (std::string& word : filled) {
      if (word[0] != '{') continue;
      if (!certificates_) certificates_.emplace();
      const std::string name = certificates_->Path(word.substr(1, word.size() - 2));
      word = folder_.Write("peer.pem", ReadFile(name + ".key") + ReadFile(name + ".pem"));
    }
    return filled;
  }
  void Configure(const Row& row) {
    const std::string port = row.mail == nullptr ? "" : PortOf("m", row.mail);
    std::string config = row.config;
    const size_t at = config.find("{mail}");
    if (at != std::string::npos) {
      config.replace(at, 6, port);
      const bool by_line = config.find("MAIL_SKIP_BAD") != std::string::npos;
      folder_.Write("bcc.txt", std::string("Han <han\n") + (by_line ? "Park Ji park@example.com\n" : ""));
    }
    config_.erase(config_.find("ALARM_1"),
                  config_.find("\n", config_.find("ALARM_1")) + 1 - config_.find("ALARM_1"));
    config_ += row.mail == nullptr ? "SEND_EMAIL_CHECK 0\n" : "SMTP_SERVER_PORT " + port + "\n";
    config_ += row.chat == nullptr
                   ? "SEND_WEBHOOK_CHECK 0\n"
                   : "WEBHOOK_SERVER_URL http://127.0.0.1:" + PortOf("c", row.chat) + "/hidden/a-long-key\n";
    if (row.server != nullptr) config_ += "ALARM_1 127.0.0.1:" + PortOf("s", row.server) + "\n";
    folder_.Write("agent.conf", config_ + config);
  }
  std::string Told(const Words& words, int status) const {
    folder_.Write("test.out", "");
    Process tool(Joined({"env", "SSL_CERT_FILE=" + (certificates_ ? certificates_->Path("ca.pem") : ""), TOOL,
                         "test-alarm", "-f", folder_ / "agent.conf", "--timeout", "2"},
                        words),
                 folder_ / "test.out", folder_ / "test.out");
    EXPECT_EQ(tool.ExitStatus(), status);
    return ReadFile(folder_ / "test.out");
  }

  Listener away_{true};
  std::vector<std::unique_ptr<Peer>> peers_;
  std::optional<test::CertificateFolder> certificates_;
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

TEST_P(TestAlarm, TellsThePeersWords) {
  const Row& row = GetParam();
  Configure(row);
  const std::string told = Told({}, row.status);
  for (const char* line : row.lines)
    EXPECT_NE(told.find(line), std::string::npos) << line << "--- not in\n" << told;
  const std::string all = told + Told({"--dialogue"}, row.status) + Told({"--json"}, row.status);
  // The password, its base64 as it is sent, and the hook's path, whole and in part.
  for (const char* secret : {"hush", "AHN0dABodXNo", "aHVzaA", "hidden", "a-long-key"})
    EXPECT_EQ(all.find(secret), std::string::npos) << all;
  EXPECT_EQ(server_.Seen("ALARM+"), 0U);
}

std::string NameOf(const testing::TestParamInfo<Row>& row) {
  return row.param.name;
}
INSTANTIATE_TEST_SUITE_P(Peers, TestAlarm, testing::ValuesIn(ROWS), NameOf);

class TestAlarmBounds : public AllChannels {};

TEST_F(TestAlarmBounds, StartAlarmIsSentWhenAskedFor) {
  folder_.Write("agent.conf", config_);
  Process tool({TOOL, "test-alarm", "-f", folder_ / "agent.conf", "--to", "servers", "--servers", "start"});
  EXPECT_EQ(tool.ExitStatus(), 0);
  EXPECT_EQ(server_.Seen("ALARM+Tovik Start"), 1U);
  EXPECT_EQ(mails_.Arrived() + posts_.Arrived(), 0);
}

TEST_F(TestAlarmBounds, SilentPeersAreWaitedForSideBySideAndAnInterruptLeavesAtOnce) {
  const Listener silent;
  for (int i = 2; i < 8; ++i)
    config_ += "ALARM_" + std::to_string(i) + " 127.0.0.1:" + std::to_string(silent.Port()) + "\n";
  folder_.Write("agent.conf", config_);
  const auto start = std::chrono::steady_clock::now();
  Process bounded({TOOL, "test-alarm", "-f", folder_ / "agent.conf", "--to", "servers", "--timeout", "1"});
  EXPECT_EQ(bounded.ExitStatus(), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(5));
  Process interrupted(
      {TOOL, "test-alarm", "-f", folder_ / "agent.conf", "--to", "servers", "--timeout", "600"});
  EXPECT_TRUE(WaitUntil([&] { return silent.Visited(); }));
  kill(interrupted.Pid(), SIGINT);
  EXPECT_NE(interrupted.Wait(seconds(5)), -1);
}

}  // namespace
}  // namespace harness
