// "test-alarm" tells the peer's own words: against peers that take, refuse, keep silent, close and garble.
#include <memory>
#include <optional>
#include <sstream>

#include "system/harness.h"
#include "tls/certificates.h"

namespace harness {
namespace {

struct Row {
  const char* name;
  const char* ways;  // those that are on, each with the script of its peer, as PortOf takes it
  int status;
  const char* lines;        // that are told; of one that ends with "..." the beginning
  const char* config = "";  // {port}: that of the last peer
  const char* bcc = "";     // a file of recipients
};

const Row ROWS[] = {
    {"AllTakeIt", "mail smtp, chat http:200 1\n, server good", 0,
     "  ok          kim@example.com   250 more 2.1.5 Ok\n"
     "  ok          the message       250 2.0.0 queued as 4F1C2\n"
     "  note        the mail's longest line has ...\n"
     "  ok          200 1\n"
     "  ok          OPEN_OK\n"
     "4 of 4 took it.\n"},
    {"NobodyIsThere", "", 3, ""},
    {"OneRecipientIsRefused", "mail smtp:lee@", 1,
     "  ok          kim@example.com   250 more 2.1.5 Ok\n"
     "  REFUSED     lee@example.com   550 5.1.1 Not here\n"
     "1 of 2 took it.\n"},
    {"LoginIsRefused", "mail smtp:AUTH", 2,
     "  REFUSED     the login   550 5.1.1 Not here\n"
     "0 of 1 took it.\n",
     "SMTP_AUTH 2\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\n"},
    {"MailIsRefused", "mail smtp:DATA", 2,
     "  REFUSED     the message       550 5.1.1 Not here\n"
     "0 of 2 took it.\n"},
    {"MailServerIsSilent", "mail silent", 2, "  SILENT      the message   \n"},
    {"MailServerIsAway", "mail away", 2,
     "  UNREACHABLE the message   Failed to connect to the mail server\n"},
    {"MailCannotBeSent", "mail smtp", 2, "  NOT SENT    the message   Invalid parameter\n",
     "SENDER_EMAIL a b\n"},
    {"TextDoesNotConvert", "mail smtp, chat http:200 1", 2,
     "  NOT SENT    the message   a text does not convert to UTF-8\n"
     "  NOT SENT    a text does not convert to UTF-8\n",
     "PROC_NAME \xf9\xd4x\n"},
    {"UrlsServerIsToldPerRecipient",
     "mail sink --certificate {localhost} --user stt --password hush --refuse lee@example.com", 1,
     "mail    smtp://localhost:...\n"
     "  NOT SENT    \"Han\" <<han>      a bracket or a blank in the address\n"
     "  ok          kim@example.com   250 OK\n"
     "  REFUSED     lee@example.com   550 5.1.1 Nobody 5.1.1 of that name\\x07\n"
     "  ok          the message       250 OK\n"
     "1 of 3 took it.\n",
     "MAIL_URL smtp://localhost:{port}\nMAIL_TLS 2\nSMTP_AUTH 2\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\n",
     "Han <han\n"},
    {"UrlsListsAreReadByTheLine", "mail smtp", 0,
     "  ok          park@example.com   250 ...\n"
     "bcc.txt line 1 left out: a bracket or a blank in the address\n"
     "3 of 3 took it.\n",
     "MAIL_URL smtp://localhost:{port}\nMAIL_SKIP_BAD 1\n", "Han <han\nPark Ji park@example.com\n"},
    // To hide a password of one star must come to an end.
    {"UrlsServerRefusesTheLogin", "mail sink --certificate {localhost} --smtps --user stt --password other",
     2,
     "mail    smtps://localhost:...\n"
     "  REFUSED     the login   535 5.7.8 Authentication credentials invalid\n"
     "0 of 1 took it.\n",
     "MAIL_URL smtps://localhost:{port}\nSMTP_AUTH 3\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD *\n"},
    {"UrlsServerTakesNoLogin", "mail smtp", 2, "  REFUSED     the login   Login denied\n",
     "MAIL_URL smtp://localhost:{port}\nSMTP_AUTH 2\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\n"},
    {"UrlsServerIsAnother", "mail sink --certificate {server}", 2,
     "  UNREACHABLE the message   SSL: certificate subject name 'server' does not match target host name "
     "'localhost'\n",
     "MAIL_URL smtp://localhost:{port}\nMAIL_TLS 2\n"},
    {"UrlsServerIsSilent", "mail silent", 2, "  SILENT      the message   Operation timed out after ...\n",
     "MAIL_URL smtp://localhost:{port}\nMAIL_TIMEOUT 1\n"},
    {"ChatRefuses", "chat http:400 Bad payload", 2,
     "  REFUSED     400 Bad payload\n"
     "  note        the agent counts this as delivered\n"},
    {"ChatDenies", "chat http:200 Webhook message delivery failed", 2,
     "  DOUBTFUL    200 Webhook message delivery failed\n"
     "  note        the agent counts this as delivered\n"},
    {"ChatTakesTheAdaptiveCard", "chat http:202 ", 0, "  ok          202\n", "WEBHOOK_CARD 1\n"},
    {"ChatTakesTheForm", "chat http:200 ok", 0, "  ok          200 ok\n", "WEBHOOK_APPS 2\n"},
    {"ChatRepeatsItsAddress", "chat http:404 no hook hidden/a-long-key and a-long-key", 2,
     "  REFUSED     404 no hook *** and ***\n"},
    {"ChatHasNoAddress", "chat http:200 1", 2, "  NOT SENT    ...\n",
     "WEBHOOK_SERVER_URL htps://chat.example.com/hidden\n"},
    {"ChatSaysNothing", "chat close", 2, "  REFUSED     Empty reply from server\n"},
    {"ChatOutlastsTheAgent", "chat silent", 2, "  SILENT      Operation timed out after ...\n",
     "WEBHOOK_TIMEOUT 1\n"},
    {"ChatIsSilent", "chat silent", 2, "  SILENT      \n"},
    {"ChatIsAway", "chat away", 2, "  UNREACHABLE Failed to connect to 127.0.0.1 port ...\n"},
    {"ServerIsSilent", "server silent", 2,
     "  SILENT      no reply to OPEN\n"
     "  note        holds every report to the servers behind it for 60 s\n"},
    {"ServerCloses", "server close", 2, "  REFUSED     closed without a reply\n"},
    {"ServerGarbles", "server garble", 2, "  REFUSED     ...\n"},
    {"ServerIsAway", "server away", 2, "  UNREACHABLE Connection refused\n"},
};

// What turns a way on.
std::string LinesOf(const std::string& way, const std::string& port) {
  if (way == "mail") return "SEND_EMAIL_CHECK 1\nSMTP_SERVER_PORT " + port + "\n";
  if (way == "server") return "ALARM_1 127.0.0.1:" + port + "\n";
  return "SEND_WEBHOOK_CHECK 1\nWEBHOOK_SERVER_URL http://127.0.0.1:" + port + "/hidden/a-long-key\n";
}

class TestAlarm : public AllChannels, public testing::WithParamInterface<Row> {
 protected:
  // The port of a peer with that script of answers.py; "sink ...": mail_sink.py with those options, "good":
  // the management server of the fixture, "away": nobody.
  std::string PortOf(const std::string& way, const std::string& script) {
    if (script == "away") return std::to_string(away_.Port());
    if (script == "good") return server_.Port();
    const bool sink = script.starts_with("sink ");
    peers_.push_back(std::make_unique<Peer>(folder_, way + " peer", sink ? "mail_sink.py" : "answers.py",
                                            sink ? SinkOptions(script) : Words{"--script", script}));
    return peers_.back()->Port();
  }
  // "{NAME}" becomes a file with that certificate and its key.
  Words SinkOptions(const std::string& script) {
    std::istringstream text(script.substr(strlen("sink ")));
    Words options;
    for (std::string word; text >> word; options.push_back(word)) {
      if (word[0] != '{') continue;
      certificates_.emplace();
      const std::string name = certificates_->Path(word.substr(1, word.size() - 2));
      word = folder_.Write("peer.pem", ReadFile(name + ".key") + ReadFile(name + ".pem"));
    }
    return options;
  }
  void Configure(const Row& row) {
    config_ = std::regex_replace(config_, std::regex("ALARM_1.*\n"), "");
    config_ += "SEND_EMAIL_CHECK 0\nSEND_WEBHOOK_CHECK 0\n";
    std::string port;
    std::istringstream ways(row.ways);
    for (std::string way; std::getline(ways >> std::ws, way, ',');) {
      const size_t blank = way.find(' ');
      port = PortOf(way.substr(0, blank), way.substr(blank + 1));
      config_ += LinesOf(way.substr(0, blank), port);
    }
    config_ += std::regex_replace(row.config, std::regex("\\{port\\}"), port);
    folder_.Write("agent.conf", config_);
    folder_.Write("bcc.txt", row.bcc);
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
  std::istringstream lines(row.lines);
  for (std::string line; std::getline(lines, line);)
    EXPECT_TRUE(Has(told, line.ends_with("...") ? line.substr(0, line.size() - 3) : line + "\n"));
  const std::string all = told + Told({"--dialogue"}, row.status) + Told({"--json"}, row.status);
  // The password, its base64 as it is sent, and the hook's path, whole and in part.
  for (const char* secret : {"hush", "AHN0dABodXNo", "aHVzaA", "hidden", "a-long-key"})
    EXPECT_EQ(all.find(secret), std::string::npos) << all;
  EXPECT_EQ(server_.Seen("ALARM+"), 0U);
}

INSTANTIATE_TEST_SUITE_P(Peers, TestAlarm, testing::ValuesIn(ROWS), testing::PrintToStringParamName());

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
