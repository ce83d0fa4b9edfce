// What the keys change about mails and posts: each fault without its key, and its cure.
#include <gtest/gtest.h>

#include <map>

#include "Tovik/alarm_fixture.h"
#include "Tovik/alarms/alarm_body.h"
#include "Tovik/alarms/alarm_mail_head.h"
#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/recipient_line.h"
#include "Tovik/alarms/webhook_body.h"
#include "Tovik/config/url.h"

namespace {

using std::chrono::steady_clock;
using support::Has;
using support::Peer;
using support::SetText;

class KeysTest : public test::AlarmTest {
 protected:
  // A key and a certificate for the name, in one file: an authority of itself.
  std::string Certificate(const std::string& name) const {
    const std::string file = folder_ / name + ".pem";
    const std::string command = "exec 2> /dev/null; openssl req -x509 -nodes -newkey ec -pkeyopt " +
                                std::string("ec_paramgen_curve:P-256 -subj /CN=") + name +
                                " -addext subjectAltName=DNS:" + name + " -keyout '" + file + "' >> '" +
                                file + ".part'; cat '" + file + ".part' >> '" + file + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return file;
  }
  static void AimUrl(const std::string& scheme, const Peer& sink) {
    SetText(m_mail_url, scheme + "://localhost:" + sink.Port());
  }
  static std::string Kept(const Peer& sink, const std::string& name, int number) {
    return sink.Kept(std::to_string(number) + name);
  }
};

constexpr const char* LOST_MAIL = "ERROR Mail lost: [ IP ] stt, kind 2: its text does not convert to UTF-8";
constexpr const char* LOST_POST =
    "ERROR WebHook lost: [ IP ] stt, kind 2: its text does not convert to UTF-8";

// Text, what becomes of it in a mail, and in the JSON of a post.
TEST_F(KeysTest, TextsOfEveryKindArriveOnceTheyAreRepaired) {
  const Peer mails(folder_, "mails", "mail_sink.py");
  const Peer posts(folder_, "posts", "webhook_sink.py");
  const struct {
    const char *text, *mailed, *posted;
    bool loses, breaks;  // without the keys: the alarm is lost, or the post is no JSON
  } cases[] = {
      {"\xED\x95\x9C \xEA\xB0\x80", ">\xED\x95\x9C \xEA\xB0\x80<", "\"\xED\x95\x9C \xEA\xB0\x80\"", true,
       false},
      {"\xD3\xDE\xF9\xDB", ">\xE5\xA4\xA7\xE9\x9F\x93<", "\"\xE5\xA4\xA7\xE9\x9F\x93\"", true, false},
      {"\xB0\xA1\n\xEA\xB0\x80", ">\xEA\xB0\x80<br />\xEA\xB0\x80<", "\"\xEA\xB0\x80<br />\xEA\xB0\x80\"",
       true, false},
      {"\xA1\xA4", ">\xC2\xB7<", "\"\xC2\xB7\"", false, true},
      {"half \xB0", ">half \xEF\xBF\xBD<", "\"half \xEF\xBF\xBD\"", false, true},
      {"a \"quote\"", ">a \"quote\"<", R"("a \"quote\"")", false, true},
      {"a \\ b", ">a \\ b<", R"("a \\ b")", false, true},
      {"a\tb\r\nc", ">a\tb\r<br />c<", R"("a\tb\r<br />c")", false, true},
  };
  Aim(mails.Port());
  SetText(m_webhook_server_url, "http://127.0.0.1:" + posts.Port());
  int mailed = 0;
  int posted = 0;
  for (const auto& c : cases) {
    m_text_repair = m_webhook_strict = 0;
    const test::Lines traced = test::Messages(test::TraceOf([&] {
      EXPECT_EQ(Mail(c.text), c.loses ? "" : "sent") << c.text;
      EXPECT_EQ(Post(c.text), c.loses ? "" : "sent") << c.text;
    }));
    EXPECT_EQ(traced, c.loses ? (test::Lines{LOST_MAIL, LOST_POST}) : test::Lines()) << c.text;
    if (!c.loses) {
      EXPECT_TRUE(Has(Kept(posts, ".json", ++posted), c.breaks ? R"("parsed": false)" : R"("parsed": true)"))
          << c.text;
      ++mailed;
    }
    m_text_repair = m_webhook_strict = 1;
    ASSERT_EQ(Mail(c.text), "sent") << c.text;
    ASSERT_EQ(Post(c.text), "sent") << c.text;
    ExpectParts(Kept(mails, ".html", ++mailed), {c.mailed});
    ExpectParts(Kept(posts, ".body", ++posted), {c.posted});
    ExpectParts(Kept(posts, ".json", posted), {R"("parsed": true)"});
  }
}

TEST_F(KeysTest, RepairedBodiesAreCutAtACharacterWithTheirLayoutWhole) {
  std::string text;
  for (int i = 0; i < 300'000; ++i) text += "\xEA\xB0\x80\"";
  m_text_repair = m_webhook_strict = 1;
  for (const int64_t adaptive : {0, 1}) {
    m_webhook_card = adaptive;
    const char* reason = "";
    const base::UniqueText body = alarms::WebHookBody({0, "t", "l", text, ""}, 1, 0, &reason);
    ASSERT_NE(body, nullptr) << reason;
    const std::string_view posted = body.get();
    EXPECT_TRUE(posted.size() <= alarms::BODY_LIMIT && posted.size() > alarms::BODY_LIMIT - 5)
        << posted.size();
    EXPECT_TRUE(posted.ends_with("}]}")) << posted.substr(posted.size() - 100);
  }
}

// Line, name, address, and why it is left out.
TEST(RecipientLineTest, TakesTheLastWordAsTheAddress) {
  const std::string name255(255, 'n'), address254 = "a@" + std::string(252, 'b');
  const struct {
    std::string line, name, address, fault;
  } cases[] = {
      {"kim kim@example.com\r", "kim", "kim@example.com", ""},
      {" Kim \t Min-su  kim@example.com ", "Kim Min-su", "kim@example.com", ""},
      {"root@example.com", "", "root@example.com", ""},
      {"Admin root", "Admin", "root", ""},
      {name255 + " " + address254, name255, address254, ""},
      {"kim", "kim", "", "no address"},
      {std::string(1000, 'n') + " a@b", std::string(1000, 'n'), "a@b", "the name is too long"},
      {"kim " + address254 + "b", "kim", address254 + "b", "the address is too long"},
      {"k\x01m kim@example.com", "k\x01m", "kim@example.com", "a control character"},
      {"\"kim\" kim@example.com", "\"kim\"", "kim@example.com", "a quote in the name"},
      {"kim <kim@example.com>", "kim", "<kim@example.com>", "a bracket or a blank in the address"},
  };
  for (const auto& c : cases) {
    const alarms::RecipientLine parsed = alarms::ParseRecipient(c.line);
    EXPECT_EQ(parsed.name, c.name);
    EXPECT_EQ(parsed.address, c.address);
    EXPECT_EQ(parsed.fault == nullptr ? "" : parsed.fault, c.fault) << c.line;
  }
  EXPECT_TRUE(alarms::ParseRecipient(" \t\r").blank);
}

TEST_F(KeysTest, BadLinesOfTheListsAreLeftOutAndTracedOnce) {
  const Peer sink(folder_, "sink", "mail_sink.py");
  Aim(sink.Port());
  const std::string to = "\"kim\" kim@example.com\n\nlee\nPark Ji park@example.com\n" +
                         std::string(1000, 'n') + " long@example.com\nlast last@example.com";
  Lists(to, "", "");
  EXPECT_EQ(Mail("m"), "smtp failed: Invalid parameter\n");
  m_mail_skip_bad = 1;
  const auto traced = [&](const std::string& list) {
    return test::Messages(test::TraceOf([&] { Lists(list, "", ""); }));
  };
  const test::Lines left_out = {"WARN " + folder_ / "to" + " line 1 left out: a quote in the name",
                                "WARN " + folder_ / "to" + " line 3 left out: no address",
                                "WARN " + folder_ / "to" + " line 5 left out: the name is too long",
                                "INFO Receiver Cnt [ 2 ] Reference Cnt [ 0 ] Blind Cnt [ 0 ]"};
  EXPECT_EQ(traced(to), left_out);
  EXPECT_EQ(traced(to), test::Lines{left_out.back()});
  EXPECT_EQ(Mail("m"), "sent");
  ExpectParts(sink.Kept("1.json"), {R"("to": ["park@example.com", "last@example.com"])",
                                    R"("\"Park Ji\" <park@example.com>, \"last\" <last@example.com>")"});
}

TEST_F(KeysTest, AnAttachmentThatCannotBeReadIsLeftOutAndTold) {
  const Peer sink(folder_, "sink", "mail_sink.py");
  Aim(sink.Port());
  SetText(m_sz_base_path, folder_.Path());
  const std::string none = folder_ / "none.cfg";
  constexpr const char* UNREADABLE = "smtp failed: Failed to read or open a local file\n";
  EXPECT_EQ(Mail("m", none.c_str()), UNREADABLE);
  EXPECT_EQ(Mail("m", folder_.Path().c_str()), UNREADABLE) << "a CFG_FILE that is not set";
  SetText(m_mail_url, "smtp://127.0.0.1:" + sink.Port());
  EXPECT_EQ(Mail("m", none.c_str()), UNREADABLE);
  m_mail_skip_bad = 1;
  int number = 0;
  for (const bool by_url : {true, false}) {
    if (!by_url) SetText(m_mail_url, "");
    EXPECT_EQ(test::Messages(test::TraceOf([&] {
                EXPECT_EQ(Mail("m", none.c_str()), "sent");
                EXPECT_EQ(Mail("m", folder_.Path().c_str()), "sent");
              })),
              test::Lines{"WARN Mail without " + none + ": No such file or directory"});
    ExpectParts(Kept(sink, ".html", ++number),
                {">m<br />The file none.cfg could not be attached: No such file or directory.<"});
    ExpectParts(Kept(sink, ".html", ++number), {">m<"});
    ASSERT_EQ(Mail("m", folder_.Write("it's.cfg", "KEY value\n").c_str()), "sent");
    EXPECT_EQ(Kept(sink, ".attached-1", ++number), "KEY value\n");
  }
  SetText(m_sz_base_path, "");
}

TEST_F(KeysTest, MailByUrlIsSoundWhateverItSays) {
  const Peer sink(folder_, "sink", "mail_sink.py", {"--greeting", "2"});
  Aim(sink.Port());
  m_mail_timeout = 20;
  SetText(m_send_name, "\xB0\xA8\xBD\xC3 agent");
  Lists("\xB1\xE8 kim@example.com\nlee lee@example.com\n" + std::string(200, 'n') + " park@example.com\n", "",
        "choi choi@example.com\n");
  // The dialogue is out of step after such a greeting.
  EXPECT_EQ(Mail("m"), "smtp failed: SMTP server sent back an unexpected status code\n");
  SetText(m_mail_url, "smtp://127.0.0.1:" + sink.Port() + "/");
  const std::string file = folder_.Write("\xB0\xA1 \"1\".cfg", std::string(300, 'x') + "\n.\n");
  const std::string title = "[ IP ] stt \xB0\xA1 " + std::string(300, 'w') + "\x01";
  ASSERT_EQ(Outcome([&] {
              return SendAlarmEmail(title.c_str(), 4, "Label", ("\n.\n" + std::string(5000, 'm')).c_str(),
                                    file.c_str());
            }),
            "sent");
  EXPECT_EQ(sink.Kept("1.attached-1"), support::ReadFile(file));
  ExpectParts(sink.Kept("1.html"), {("><br />.<br />" + std::string(5000, 'm') + "<").c_str()});
  const std::string record = sink.Kept("1.json");
  const std::string subject = R"("subject": "[ IP ] stt \uac00 )" + std::string(300, 'w') + "\"";
  ExpectParts(
      record,
      {R"("to": ["kim@example.com", "lee@example.com", "park@example.com", "choi@example.com"], "user": null)",
       R"("defects": [], "strict")", R"("names": ["\uac00 _1_.cfg"], "defects": [], "id": true)",
       subject.c_str(), R"("from": "\uac10\uc2dc agent <agent@example.com>")",
       R"("to": "\uae40 <kim@example.com>, lee <lee@example.com>, nnnn)"});
  int longest = 0;
  ASSERT_EQ(sscanf(record.c_str() + record.find("\"longest\": "), "\"longest\": %d", &longest), 1);
  EXPECT_LE(longest, 100);
}

TEST_F(KeysTest, MailByUrlIsSecuredAsItIsAsked) {
  const std::string ours = Certificate("localhost");
  const Peer offers(folder_, "offers", "mail_sink.py", {"--certificate", ours});
  const Peer other(folder_, "other", "mail_sink.py", {"--certificate", Certificate("other")});
  const Peer smtps(folder_, "smtps", "mail_sink.py", {"--certificate", ours, "--smtps"});
  const Peer plain(folder_, "plain", "mail_sink.py");
  const Peer strange(folder_, "strange", "mail_sink.py", {"--certificate", folder_ / "other.pem", "--smtps"});
  constexpr const char* MISMATCH =
      "smtp failed: SSL: no alternative certificate subject name matches target host name 'localhost'\n";
  const struct {
    const Peer& peer;
    const char* scheme;
    int tls;
    std::string store, outcome, secured;
  } cases[] = {
      {offers, "smtp", 0, ours, "sent", "false"},
      {offers, "smtp", 1, "", "sent", "true"},
      {other, "smtp", 1, ours, "sent", "true"},
      {plain, "smtp", 1, ours, "sent", "false"},
      {offers, "SMTP", 2, ours, "sent", "true"},
      {smtps, "smtps", 0, ours, "sent", "true"},
      {plain, "smtp", 2, ours, "smtp failed: STARTTLS not supported.\n", ""},
      {offers, "smtp", 2, "", "smtp failed: SSL certificate problem: self-signed certificate\n", ""},
      {other, "smtp", 2, folder_ / "other.pem", MISMATCH, ""},
      {strange, "smtps", 0, folder_ / "other.pem", MISMATCH, ""},
      {smtps, "smtps", 0, "", "smtp failed: SSL certificate problem: self-signed certificate\n", ""},
  };
  std::map<const Peer*, int> mails;
  for (const auto& c : cases) {
    AimUrl(c.scheme, c.peer);
    m_mail_tls = c.tls;
    c.store.empty() ? unsetenv("SSL_CERT_FILE") : setenv("SSL_CERT_FILE", c.store.c_str(), 1);
    EXPECT_EQ(Mail("m"), c.outcome);
    if (c.outcome == "sent")
      ExpectParts(Kept(c.peer, ".json", ++mails[&c.peer]), {("\"tls\": " + c.secured).c_str()});
  }
  unsetenv("SSL_CERT_FILE");
}

TEST_F(KeysTest, MailByUrlLogsInAndTellsTheServersWords) {
  const Peer sink(folder_, "sink", "mail_sink.py",
                  {"--user", "agent", "--password", "pass word", "--refuse", "lee@example.com"});
  SetText(m_stmp_auth_id, "agent");
  Lists("kim kim@example.com\nlee lee@example.com\n", "", "choi choi@example.com\nhan <han\n");
  constexpr const char* REFUSED =
      "smtp refused: \"han\" <<han>: a bracket or a blank in the address\n"
      "smtp refused: <lee@example.com>: 550 5.1.1 Nobody 5.1.1 of that name\n";
  const struct {
    const char* url;
    int64_t method;
    const char* password;
    std::string outcome;
  } cases[] = {
      {"smtp", 2, "pass word", REFUSED},
      {"smtp", 3, "pass word", REFUSED},
      {"smtp", 3, "no", "smtp failed: Login denied; AUTH: 535 5.7.8 Authentication credentials invalid\n"},
      {"smtp", 1, "", "smtp failed: MAIL failed: 530; MAIL: 530 5.7.0 Authentication required\n"},
      {"smtp", 4, "", "smtp failed: Invalid parameter\n"},
      // Without a URL.
      {"", 3, "no", "smtp failed: Failed to authenticate with the given credentials\n"},
  };
  Aim(sink.Port());
  for (const auto& c : cases) {
    *c.url == '\0' ? SetText(m_mail_url, "") : AimUrl(c.url, sink);
    m_stmp_auth = c.method;
    SetText(m_stmp_auth_password, c.password);
    const std::string outcome = Mail("m");
    EXPECT_TRUE(Has(outcome, c.outcome));
  }
  AimUrl("smtp", sink);
  m_stmp_auth = 2;
  SetText(m_stmp_auth_password, "pass word");
  m_stmp_flags = 1;
  const std::string dialogue = Mail("m");
  m_stmp_flags = 0;
  ExpectParts(dialogue, {"[smtp Client]: AUTH ***\n", "[smtp Client]: ***\n", "[smtp Server]: 235 "});
  EXPECT_FALSE(Has(dialogue, "AGFnZW50")) << "base64 of the login";
  EXPECT_EQ(sink.Arrived(), 3);
  ExpectParts(sink.Kept("1.json"), {R"("to": ["kim@example.com", "choi@example.com"], "user": "agent")"});
  Lists("lee lee@example.com\n", "", "");
  ExpectParts(Mail("m"), {"smtp refused: <lee@example.com>: ", "smtp failed: "});
  Lists("", "", "");
  EXPECT_EQ(Mail("m"), "smtp failed: no recipients\n");
}

TEST_F(KeysTest, SilentServersHoldNobodyUp) {
  const support::Listener silent;
  const Peer mute(folder_, "mute", "mail_sink.py", {"--mute"});
  m_mail_timeout = m_webhook_timeout = 1;
  const auto begin = steady_clock::now();
  Aim(std::to_string(silent.Port()));
  EXPECT_EQ(Post("m"), "curl_easy_perform() failed: Timeout was reached\n");
  SetText(m_mail_url, "smtp://127.0.0.1:" + std::to_string(silent.Port()));
  const std::string outcome = Mail("m");
  EXPECT_TRUE(outcome.starts_with("smtp failed: ") && outcome.ends_with("; waiting at the greeting\n"))
      << outcome;
  m_mail_timeout = 0;
  AimUrl("smtp", mute);
  EXPECT_EQ(Mail("m"), "sent");
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(15));
}

TEST_F(KeysTest, AnswersThatDenyAPostAreFailures) {
  const struct {
    const char *status, *answer;
    int64_t apps, card;
    std::string outcome;
  } cases[] = {
      {"200", "1\n", 1, 0, "sent"},
      {"200", "ok", 2, 0, "sent"},
      {"202", "", 1, 1, "sent"},
      {"400", "Bad payload", 1, 0, "webhook failed: 400: Bad payload\n"},
      {"429", "", 2, 1, "webhook failed: 429: no words\n"},
      {"502", "ok", 2, 0, "webhook failed: 502: ok\n"},
      {"302", "1", 1, 0, "webhook failed: 302: 1\n"},
      {"200", "Webhook message delivery failed\x1B\n\xB0", 1, 0,
       "webhook failed: 200: Webhook message delivery failed  \xEF\xBF\xBD\n"},
      {"200", "1", 2, 0, "webhook failed: 200: 1\n"},
  };
  for (const auto& c : cases) {
    const Peer sink(folder_, std::to_string(&c - cases), "webhook_sink.py",
                    {"--status", c.status, "--answer", c.answer});
    Aim(sink.Port());
    m_webhook_apps = c.apps;
    m_webhook_card = c.card;
    m_webhook_strict = 0;
    EXPECT_EQ(Post("m"), "sent") << c.answer;
    m_webhook_strict = 1;
    EXPECT_EQ(test::TraceOf([&] { EXPECT_EQ(Post("m"), c.outcome); }), "");
    EXPECT_EQ(sink.Arrived(), 2) << "no other place is asked";
  }
}

TEST_F(KeysTest, PostsAnAdaptiveCardWithTheSameFacts) {
  const Peer sink(folder_, "sink", "webhook_sink.py", {"--status", "202", "--answer", ""});
  Aim(sink.Port());
  m_webhook_card = 1;
  ASSERT_EQ(Post("a \"b\"\n\xB0\xA1", 4), "sent");
  ExpectParts(sink.Kept("1.json"), {R"("parsed": true)", R"("content-type": "application/json")"});
  ExpectParts(sink.Kept("1.body"),
              {R"({"type":"message",)", R"("contentType":"application/vnd.microsoft.card.adaptive")",
               R"("weight":"Bolder","size":"Medium","text":"[ IP ] stt")", R"("text":"Label")",
               alarms::PictureOf(4, &alarms::AlarmPictures::webhook),
               R"({"title":"Assigned IP","value":"10.1.2.3"})", R"({"title":"Send date","value":"20)",
               R"({"title":"Message","value":"a \"b\"\n\n)"
               "\xEA\xB0\x80\"}"});
  ASSERT_EQ(Post("m", 5), "sent");
  EXPECT_FALSE(Has(sink.Kept("2.body"), "Image"));
  EXPECT_EQ(
      alarms::TableWords("<table x='1'><tr><th>a</th><th>b</th></tr><tr><td>1 %</td><td>2</td></tr></table>"),
      "a | b\n1 % | 2");
}

TEST(MailHeadTest, FoldsAndEncodes) {
  const std::string words = "[ 10.1.2.3 ] stt Alarm Occured - Process Restart";
  EXPECT_EQ(alarms::TextHeader("Subject", words), "Subject: " + words);
  EXPECT_EQ(alarms::TextHeader("Subject", words + " and then some more."),
            "Subject: " + words + " and then some\r\n more.");
  EXPECT_EQ(alarms::TextHeader("Subject", "=?x"), "Subject: =?UTF-8?B?PT94?=");
  EXPECT_EQ(alarms::AddressHeader("To", {{"a\\b", "a@b"}, {"", "c@d"}}), "To: \"a\\\\b\" <a@b>,\r\n <c@d>");
  EXPECT_EQ(alarms::DispositionHeader("a b.csv"), "Content-Disposition: attachment; filename=\"a b.csv\"");
  EXPECT_NE(alarms::MessageIdHeader("a@b.c"), alarms::MessageIdHeader("a@b.c"));
  const std::string zone = getenv("TZ") == nullptr ? "" : getenv("TZ");
  const std::pair<const char*, const char*> zones[] = {
      {"XXX-5:30", "+0530"}, {"XXX3:30", "-0330"}, {"XXX-1YYY-2,M1.1.0,M12.5.0", "+0200"}};
  for (const auto& [name, offset] : zones) {
    setenv("TZ", name, 1);
    tzset();
    const std::string date = alarms::DateHeader(1'782'000'000);  // June 2026
    EXPECT_TRUE(date.starts_with("Date: Sun, 21 Jun 2026 ") || date.starts_with("Date: Sat, 20 Jun 2026 "))
        << date;
    EXPECT_TRUE(date.ends_with(offset)) << date;
  }
  zone.empty() ? unsetenv("TZ") : setenv("TZ", zone.c_str(), 1);
  tzset();
}

TEST(MailUrlTest, OtherUrlsCountAsAbsent) {
  for (const char* good :
       {"smtp://a", "SMTPS://mail.example.com:465/", "smtp://[::1]:25", "smtp://10.0.0.1:65535"})
    EXPECT_TRUE(UsableMailUrl(good)) << good;
  for (const char* bad :
       {"", "\n", "mail.example.com", "http://a", "smtp://", "smtp:///x", "smtp://u:p@a", "smtp://a:0",
        "smtp://a:65536", "smtp://a:", "smtp://a/x", "smtp://[::1", "smtp://a b"})
    EXPECT_FALSE(UsableMailUrl(bad)) << bad;
}

}  // namespace
