#include <gtest/gtest.h>

#include <string>

#include "Tovik/alarm_sink.h"
#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/email.h"
#include "Tovik/core/trace.h"

namespace {

using alarm_test::SetText;
using alarm_test::Sink;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

class EMail : public testing::Test {
 protected:
  void SetUp() override {
    SetText(m_send_name, "STT Agent");
    SetText(m_send_email, "agent@example.com");
    m_stmp_auth = 1;
    Lists("kim kim@example.com\nlee lee@example.com\n", "", "");
  }
  void TearDown() override {
    DunraSTTUtils::SetLogLevel(0);
    for (auto* text : {&m_send_name, &m_send_email, &m_stmp_server_url, &m_smtp_server_port, &m_stmp_auth_id,
                       &m_stmp_auth_password}) {
      SetText(*text, "");
    }
    m_stmp_auth = 0;
    m_stmp_flags = 0;
  }
  void Lists(const std::string& to, const std::string& cc, const std::string& bcc) const {
    ASSERT_EQ(GetEMailList(folder_.Write("to", to).c_str(), folder_.Write("cc", cc).c_str(),
                           folder_.Write("bcc", bcc).c_str()),
              1);
  }
  static void Aim(const std::string& port) {
    SetText(m_stmp_server_url, "127.0.0.1");
    SetText(m_smtp_server_port, port);
  }
  int Send(const char* message, const char* attachment = nullptr, uint32_t kind = 2) {
    CaptureStderr();
    CaptureStdout();
    const int result = SendAlarmEmail("[ 10.1.2.3 ] stt", kind, "STT Service Moniter", message, attachment);
    output_ = GetCapturedStdout();
    errors_ = GetCapturedStderr();
    return result;
  }
  static void ExpectParts(const std::string& record, std::initializer_list<const char*> parts) {
    for (const char* part : parts)
      EXPECT_NE(record.find(part), std::string::npos) << part << " in " << record;
  }
  support::TempFolder folder_;
  std::string output_;
  std::string errors_;
};

// As the reader of a mail gets it, date taken out.
std::string Html(const std::string& picture, const std::string& message) {
  const std::string tabs(9, '\t');
  const auto tab = [&](size_t count) { return tabs.substr(0, count); };
  const std::string font = R"(font-family:"Segoe UI",sans-serif;)";
  return "<html><head><title>No Title</title><body><div>" + tab(1) +
         "<div style='margin:auto;width:800px;'>" + tab(2) +
         "<div style='padding:5pt 5pt 5pt 7.5pt;background-color:#6365A2;font-size:15pt;" + font +
         "color:white;'>[ 10.1.2.3 ] stt" + tab(2) + "</div>" + tab(2) +
         "<div style='background:#F3F2F1;padding:18pt 7.5pt 15pt 9pt;'>" + tab(3) + "<table>" + tab(4) +
         "<tr>" + tab(5) + "<td style='padding:7.5pt 7.5pt 0 0;vertical-align:top;width:40px;'>" + tab(6) +
         "<img src='" + picture + "' width='40px' style='width:40px; max-width:40px' />" + tab(5) + "</td>" +
         tab(5) + "<td style='padding:7.5pt 7.5pt 7.5pt 7.5pt;background-color:#FFFFFF;'>" + tab(6) +
         "<div style='margin-bottom:7.5pt;'>" + tab(7) + "<b style='font-size:9pt;" + font +
         "color:#323130;'>STT Service Moniter</b>" + tab(7) + "<span>&nbsp;&nbsp;&nbsp;&nbsp;</span>" +
         tab(7) + "<span style='font-size:9pt;" + font + "color:gray'>DATE</span>" + tab(6) + "</div>" +
         tab(6) + "<div style='word-break:break-word;;font-size:10.5pt;" + font + "color:#323130'>" +
         message + "</div>" + tab(5) + "</td>" + tab(4) + "</tr>" + tab(3) + "</table>" + tab(2) + "</div>" +
         tab(1) + "</div></div></body></html>";
}

TEST_F(EMail, ReachesAllRecipientsInOrder) {
  Lists("kim kim@example.com\nlee lee@example.com\n", "park park@example.com\n", "choi choi@example.com\n");
  const Sink sink("mail_sink.py");
  Aim(sink.Port());
  const std::string attachment = folder_.Write("agent.cfg", "KEY value\n");
  ASSERT_EQ(Send("a\n\xB0\xA1", attachment.c_str()), 1) << errors_;
  ExpectParts(sink.Kept("1.json"),
              {R"("from": "agent@example.com")",
               R"("to": ["kim@example.com", "lee@example.com", "park@example.com", "choi@example.com"])",
               R"("user": null)", R"("From": "\"STT Agent\" <agent@example.com>")",
               R"("To": "\"kim\" <kim@example.com>, \"lee\" <lee@example.com>")",
               R"("Cc": "\"park\" <park@example.com>")", R"("Subject": "[ 10.1.2.3 ] stt")",
               R"("attached": ["agent.cfg"])", R"("defects": [])"});
  EXPECT_EQ(sink.Kept("1.attached-1"), "KEY value\n");
  std::string html = alarm_test::WithoutDate(sink.Kept("1.html"), "color:gray'>");
  // The line ends that the mail's layout puts behind the body.
  while (html.ends_with('\n') || html.ends_with('\r')) html.pop_back();
  EXPECT_EQ(html, Html(alarms::PictureOf(2, &alarms::AlarmPictures::mail), "a<br />\xEA\xB0\x80"));
  ASSERT_EQ(Send("m", nullptr, 5), 1) << errors_;
  ASSERT_NE(sink.Kept("2.json"), "");
  EXPECT_NE(sink.Kept("2.html").find("<img src='' width"), std::string::npos);
}

TEST_F(EMail, LogsInAsConfigured) {
  const Sink sink("mail_sink.py", {"--user", "agent", "--password", "pass word"});
  Aim(sink.Port());
  SetText(m_stmp_auth_id, "agent");
  const struct {
    int64_t method;
    const char* password;
    const char* error;
  } cases[] = {
      {2, "pass word", ""},
      {3, "pass word", ""},
      {2, "wrong", "smtp failed: Failed to authenticate with the given credentials\n"},
      {3, "wrong", "smtp failed: Failed to authenticate with the given credentials\n"},
      {1, "pass word", "smtp failed: SMTP server sent back an unexpected status code\n"},
      {4, "pass word", "smtp failed: Invalid parameter\n"},
  };
  for (const auto& entry : cases) {
    m_stmp_auth = entry.method;
    SetText(m_stmp_auth_password, entry.password);
    EXPECT_EQ(Send("m"), *entry.error == '\0' ? 1 : -1);
    EXPECT_EQ(errors_, entry.error) << entry.method << entry.password;
  }
  ExpectParts(sink.Kept("2.json"), {R"("user": "agent")"});
  EXPECT_FALSE(sink.Has("3.eml"));
}

TEST_F(EMail, TellsWhatFailed) {
  const Sink sink("mail_sink.py");
  Aim(sink.Port());
  EXPECT_EQ(Send("m", (folder_ / "none").c_str()), -1);
  EXPECT_EQ(errors_, "smtp failed: Failed to read or open a local file\n");
  // Blank lines become recipients without address, at the end.
  Lists("\nkim kim@example.com\n\n", "", "");
  EXPECT_EQ(Send("m"), 1) << errors_;
  ExpectParts(sink.Kept("1.json"),
              {R"("to": ["kim@example.com", "<>", "<>"])", R"("To": "\"kim\" <kim@example.com>, <>, <>")"});
  Lists("kim <kim@example.com>\n", "", "");
  EXPECT_EQ(Send("m"), -1);
  EXPECT_EQ(errors_, "smtp failed: Invalid parameter\n");
  Lists("", "", "");
  EXPECT_EQ(Send("m"), -1);
  EXPECT_EQ(errors_, "smtp failed: SMTP server sent back an unexpected status code\n");
  EXPECT_FALSE(sink.Has("2.eml"));
  int refusing = 0;
  { refusing = support::Listener().Port(); }
  Aim(std::to_string(refusing));
  EXPECT_EQ(Send("m"), -1);
  EXPECT_EQ(errors_, "smtp failed: Failed to connect to the mail server\n");
}

TEST_F(EMail, ATextThatDoesNotConvertIsTracedAndNotSent) {
  const Sink sink("mail_sink.py");
  Aim(sink.Port());
  DunraSTTUtils::SetLogLevel(TRACE_ERROR);
  EXPECT_EQ(Send("hanja \xCA\xA1"), -1);
  EXPECT_NE(output_.find("Mail lost: [ 10.1.2.3 ] stt, kind 2: its text does not convert to UTF-8"),
            std::string::npos);
  EXPECT_EQ(errors_, "");
  EXPECT_FALSE(sink.Has("1.eml"));
}

}  // namespace
