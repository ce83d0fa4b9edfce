// What the keys change about mails and posts: each fault without its key, and its cure.
#include <gtest/gtest.h>

#include <regex>

#include "Tovik/alarm_fixture.h"
#include "Tovik/alarms/alarm_body.h"
#include "Tovik/alarms/alarm_mail_head.h"
#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/recipient_line.h"
#include "Tovik/config/url.h"
#include "tls/certificates.h"

namespace {

using support::Has;
using support::Peer;
using support::SetText;

class KeysTest : public test::AlarmTest {
 protected:
  // Without a scheme, no URL.
  static void AimUrl(const std::string& scheme, const Peer& sink) {
    Aim(sink.Port());
    SetText(m_mail_url, scheme.empty() ? "" : scheme + "://localhost:" + sink.Port());
  }
  static std::string Kept(const Peer& sink, const std::string& name, int number) {
    return sink.Kept(std::to_string(number) + name);
  }
};

// Text, and what becomes of it in a mail and in the JSON of a post.
TEST_F(KeysTest, TextsOfEveryKindAreRepaired) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"\xED\x95\x9C \xEA\xB0\x80", ">\xED\x95\x9C \xEA\xB0\x80<", "\"\xED\x95\x9C \xEA\xB0\x80\""},
      {"\xD3\xDE\xF9\xDB", ">\xE5\xA4\xA7\xE9\x9F\x93<", "\"\xE5\xA4\xA7\xE9\x9F\x93\""},
      {"\xB0\xA1\n\xEA\xB0\x80", ">\xEA\xB0\x80<br />\xEA\xB0\x80<", "\"\xEA\xB0\x80<br />\xEA\xB0\x80\""},
      {"\xA1\xA4", ">\xC2\xB7<", "\"\xC2\xB7\""},
      {"half \xB0", ">half \xEF\xBF\xBD<", "\"half \xEF\xBF\xBD\""},
      {"a \"quote\"", ">a \"quote\"<", R"("a \"quote\"")"},
      {"a \\ b", ">a \\ b<", R"("a \\ b")"},
      {"a\tb\r\nc", ">a\tb\r<br />c<", R"("a\tb\r<br />c")"},
  };
  for (const auto& [text, mailed, posted] : cases) {
    m_text_repair = m_webhook_strict = 0;
    EXPECT_FALSE(Has(PostOf(text), posted));
    m_text_repair = m_webhook_strict = 1;
    EXPECT_TRUE(Has(PostOf(text), posted));
    EXPECT_TRUE(Has(MailOf(text), mailed));
  }
}

TEST_F(KeysTest, ATextThatDoesNotConvertIsLostWithoutThem) {
  EXPECT_EQ(test::MessagesOf([] {
              EXPECT_EQ(Mail("\xD3\xDE\xF9\xDB"), "");
              EXPECT_EQ(Post("\xD3\xDE\xF9\xDB"), "");
            }),
            (test::Lines{"ERROR Mail lost: [ IP ] stt, kind 2: its text does not convert to UTF-8",
                         "ERROR WebHook lost: [ IP ] stt, kind 2: its text does not convert to UTF-8"}));
}

// Line, name, address, and why it is left out.
TEST(RecipientLineTest, TakesTheLastWordAsTheAddress) {
  const std::string name255(255, 'n'), address254 = "a@" + std::string(252, 'b');
  const std::tuple<std::string, std::string, std::string, const char*> cases[] = {
      {"kim kim@example.com\r", "kim", "kim@example.com", nullptr},
      {" Kim \t Min-su  kim@example.com ", "Kim Min-su", "kim@example.com", nullptr},
      {"root@example.com", "", "root@example.com", nullptr},
      {"Admin root", "Admin", "root", nullptr},
      {name255 + " " + address254, name255, address254, nullptr},
      {"kim", "kim", "", "no address"},
      {name255 + "n a@b", name255 + "n", "a@b", "the name is too long"},
      {"kim " + address254 + "b", "kim", address254 + "b", "the address is too long"},
      {"k\x01m kim@example.com", "k\x01m", "kim@example.com", "a control character"},
      {"\"kim\" kim@example.com", "\"kim\"", "kim@example.com", "a quote in the name"},
      {"kim <kim@example.com>", "kim", "<kim@example.com>", "a bracket or a blank in the address"},
  };
  for (const auto& [line, name, address, fault] : cases) {
    const alarms::RecipientLine parsed = alarms::ParseRecipient(line);
    EXPECT_EQ(std::pair(parsed.name, parsed.address), std::pair(name, address));
    EXPECT_STREQ(parsed.fault, fault) << line;
  }
  EXPECT_TRUE(alarms::ParseRecipient(" \t\r").blank);
}

TEST_F(KeysTest, BadLinesOfTheListsAreLeftOutAndTracedOnce) {
  const std::string lines =
      "\"kim\" kim@example.com\n\nlee\nPark Ji park@example.com\nx\x01 x@example.com\nlast last@example.com";
  const std::string to = folder_ / "to";
  const auto traced = [&] { return test::MessagesOf([&] { Lists(lines); }); };
  m_mail_skip_bad = 1;
  const test::Lines left_out = {"WARN " + to + " line 1 left out: a quote in the name",
                                "WARN " + to + " line 3 left out: no address",
                                "WARN " + to + " line 5 left out: a control character",
                                "INFO Receiver Cnt [ 2 ] Reference Cnt [ 0 ] Blind Cnt [ 0 ]"};
  EXPECT_EQ(traced(), left_out);
  EXPECT_EQ(traced(), test::Lines{left_out.back()});
  const auto kept = gEmailLists.Get();
  EXPECT_STREQ(kept->receivers->At(0).name, "Park Ji");
  EXPECT_STREQ(kept->receivers->At(1).address, "last@example.com");
}

TEST_F(KeysTest, AnAttachmentThatCannotBeReadIsLeftOutAndTold) {
  const Peer sink(folder_, "sink", "mail_sink.py");
  SetText(m_sz_base_path, folder_.Path());
  const std::string none = folder_ / "none.cfg";
  int number = 0;
  for (const char* scheme : {"", "smtp"}) {
    AimUrl(scheme, sink);
    m_mail_skip_bad = 0;
    // Such a folder is a CFG_FILE that is not set.
    for (const std::string& file : {none, folder_.Path()})
      EXPECT_EQ(Mail("m", file.c_str()), "smtp failed: Failed to read or open a local file\n");
    m_mail_skip_bad = 1;
    EXPECT_EQ(test::MessagesOf([&] {
                EXPECT_EQ(Mail("m", none.c_str()), "sent");
                EXPECT_EQ(Mail("m", folder_.Path().c_str()), "sent");
              }),
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
  const std::string message = "\n.\n" + std::string(5000, 'm');
  EXPECT_EQ(SendAlarmEmail(title.c_str(), 4, "Label", message.c_str(), file.c_str()), 1);
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
  EXPECT_TRUE(std::regex_search(record, std::regex(R"("longest": \d\d,)"))) << record;
}

TEST_F(KeysTest, MailByUrlIsSecuredAsItIsAsked) {
  const test::CertificateFolder files;
  const std::string ours = files.Path("ca.pem");
  const auto server = [&](const std::string& name, const std::string& identity, support::Words words = {}) {
    const std::string both =
        folder_.Write(identity + ".pem", support::ReadFile(files.Path(identity + ".key")) +
                                             support::ReadFile(files.Path(identity + ".pem")));
    return Peer(folder_, name, "mail_sink.py", support::Joined({"--certificate", both}, words));
  };
  const Peer plain(folder_, "plain", "mail_sink.py");
  const Peer offers = server("offers", "localhost");
  const Peer other = server("other", "server");
  const Peer smtps = server("smtps", "localhost", {"--smtps"});
  const Peer other_smtps = server("other smtps", "server", {"--smtps"});
  constexpr const char* NO_STARTTLS = "smtp failed: STARTTLS not supported.\n";
  constexpr const char* UNKNOWN =
      "smtp failed: SSL certificate problem: unable to get local issuer certificate\n";
  constexpr const char* MISMATCH =
      "smtp failed: SSL: certificate subject name 'server' does not match target host name 'localhost'\n";
  const std::tuple<const Peer&, const char*, int, std::string, std::string> cases[] = {
      // Whatever the server is:
      {offers, "smtp", 0, ours, "in the clear"},
      {plain, "smtp", 1, ours, "in the clear"},
      {other, "smtp", 1, "", "secured"},
      // The one of that name, known to an authority:
      {offers, "SMTP", 2, ours, "secured"},
      {offers, "smtp", 2, "", UNKNOWN},
      {other, "smtp", 2, ours, MISMATCH},
      {plain, "smtp", 2, ours, NO_STARTTLS},
      {smtps, "smtps", 0, ours, "secured"},
      {smtps, "smtps", 0, "", UNKNOWN},
      {other_smtps, "smtps", 0, ours, MISMATCH},
  };
  for (const auto& [peer, scheme, tls, store, expected] : cases) {
    AimUrl(scheme, peer);
    m_mail_tls = tls;
    store.empty() ? unsetenv("SSL_CERT_FILE") : setenv("SSL_CERT_FILE", store.c_str(), 1);
    std::string outcome = Mail("m");
    if (outcome == "sent")
      outcome = Has(Kept(peer, ".json", peer.Arrived()), R"("tls": true)") ? "secured" : "in the clear";
    EXPECT_EQ(outcome, expected);
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
  const std::tuple<const char*, int64_t, const char*, const char*> cases[] = {
      {"smtp", 3, "pass word", REFUSED},
      {"smtp", 3, "no", "smtp failed: Login denied; AUTH: 535 5.7.8 Authentication credentials invalid\n"},
      {"smtp", 1, "", "smtp failed: MAIL failed: 530; MAIL: 530 5.7.0 Authentication required\n"},
      {"smtp", 4, "", "smtp failed: Invalid parameter\n"},
      {"", 3, "no", "smtp failed: Failed to authenticate with the given credentials\n"},
  };
  for (const auto& [scheme, method, password, outcome] : cases) {
    AimUrl(scheme, sink);
    m_stmp_auth = method;
    SetText(m_stmp_auth_password, password);
    EXPECT_TRUE(Has(Mail("m"), outcome));
  }
  AimUrl("smtp", sink);
  m_stmp_auth = 2;
  SetText(m_stmp_auth_password, "pass word");
  m_stmp_flags = 1;
  const std::string dialogue = Mail("m");
  m_stmp_flags = 0;
  ExpectParts(dialogue, {"[smtp Client]: AUTH ***\n", "[smtp Client]: ***\n", "[smtp Server]: 235 "});
  EXPECT_FALSE(Has(dialogue, "AGFnZW50")) << "base64 of the login";
  EXPECT_EQ(sink.Arrived(), 2);
  ExpectParts(sink.Kept("1.json"), {R"("to": ["kim@example.com", "choi@example.com"], "user": "agent")"});
  Lists("lee lee@example.com\n");
  ExpectParts(Mail("m"), {"smtp refused: <lee@example.com>: ", "smtp failed: "});
  Lists("");
  EXPECT_EQ(Mail("m"), "smtp failed: no recipients\n");
}

TEST_F(KeysTest, SilentServersHoldNobodyUp) {
  const support::Listener silent;
  const Peer mute(folder_, "mute", "mail_sink.py", {"--mute"});
  m_mail_timeout = m_webhook_timeout = 1;
  Aim(std::to_string(silent.Port()));
  EXPECT_EQ(Post("m"), "curl_easy_perform() failed: Timeout was reached\n");
  SetText(m_mail_url, "smtp://127.0.0.1:" + std::to_string(silent.Port()));
  const std::string outcome = Mail("m");
  EXPECT_TRUE(outcome.starts_with("smtp failed: ") && outcome.ends_with("; waiting at the greeting\n"))
      << outcome;
  m_mail_timeout = 0;
  AimUrl("smtp", mute);
  EXPECT_EQ(Mail("m"), "sent");
}

TEST(WebHookAnswerTest, OnlyTheServicesWordsConfirmAPost) {
  const std::tuple<int64_t, bool, long, const char*, const char*> cases[] = {
      {1, false, 200, "1\n", ""},
      {2, false, 200, "ok", ""},
      {1, true, 202, "", ""},
      {2, true, 429, "", "429: no words"},
      {2, false, 502, "ok", "502: ok"},
      {2, false, 200, "1", "200: 1"},
      {1, false, 200, "Webhook failed\x1B\n\xB0", "200: Webhook failed  \xEF\xBF\xBD"},
  };
  for (const auto& [apps, adaptive, status, answer, denial] : cases)
    EXPECT_EQ(alarms::PostDenial(status, answer, alarms::ChatOf(apps, adaptive).success), denial);
}

TEST_F(KeysTest, AnAnswerThatDeniesAPostIsAFailure) {
  const Peer sink(folder_, "sink", "webhook_sink.py", {"--status", "302"});
  Aim(sink.Port());
  EXPECT_EQ(test::TraceOf([] { EXPECT_EQ(Post("m"), "sent"); }), "1");
  ExpectParts(sink.Kept("1.json"), {R"("method": "POST", "path": "/hook", "parsed": true)",
                                    R"("content-type": "application/json")"});
  m_webhook_strict = 1;
  EXPECT_EQ(test::TraceOf([] { EXPECT_EQ(Post("m"), "webhook failed: 302: 1\n"); }), "");
  EXPECT_EQ(sink.Arrived(), 2) << "no other place is asked";
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
  EXPECT_EQ(alarms::CardTableWords(
                "<table x='1'><tr><th>a</th><th>b</th></tr><tr><td>1 %</td><td>2</td></tr></table>"),
            "a | b\n1 % | 2");
}

TEST(MailHeadTest, FoldsAndEncodes) {
  const std::string words = "[ 10.1.2.3 ] stt Alarm Occured - Process Restart";
  EXPECT_EQ(alarms::MailHeadText("Subject", words), "Subject: " + words);
  EXPECT_EQ(alarms::MailHeadText("Subject", words + " and then some more."),
            "Subject: " + words + " and then some\r\n more.");
  EXPECT_EQ(alarms::MailHeadText("Subject", "=?x"), "Subject: =?UTF-8?B?PT94?=");
  EXPECT_EQ(alarms::MailHeadAddresses("To", {{"a\\b", "a@b"}, {"", "c@d"}}),
            "To: \"a\\\\b\" <a@b>,\r\n <c@d>");
  EXPECT_EQ(alarms::MailHeadDisposition("a b.csv"), "Content-Disposition: attachment; filename=\"a b.csv\"");
  EXPECT_NE(alarms::MailHeadId("a@b.c"), alarms::MailHeadId("a@b.c"));
  const std::pair<const char*, const char*> dates[] = {
      {"XXX-5:30", "Date: Sun, 21 Jun 2026 05:30:00 +0530"},
      {"XXX3:30", "Date: Sat, 20 Jun 2026 20:30:00 -0330"},
      {"XXX-1YYY-2,M1.1.0,M12.5.0", "Date: Sun, 21 Jun 2026 02:00:00 +0200"}};
  for (const auto& [zone, date] : dates) {
    setenv("TZ", zone, 1);
    tzset();
    EXPECT_EQ(alarms::MailHeadDate(1'782'000'000), date);
  }
  EXPECT_EQ(alarms::BodyDate(1'782'000'000), "2026/06/21 02:00:00");
  unsetenv("TZ");
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
