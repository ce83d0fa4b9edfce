// Alarms as mail and as post: their bytes, and a mail at a scripted server.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Tovik/alarm_fixture.h"
#include "Tovik/alarms/alarm_body.h"
#include "Tovik/alarms/alarm_pictures.h"

namespace {

using alarms::AlarmPictures;
using AlarmTest = test::AlarmTest;

TEST_F(AlarmTest, MailReachesAllRecipientsInOrder) {
  const support::Peer sink(folder_, "sink", "mail_sink.py");
  Aim(sink.Port());
  // Blank lines become recipients without address, at the end.
  Lists("\nkim kim@example.com\nlee lee@example.com\n", "park park@example.com\n", "choi choi@example.com\n");
  ASSERT_EQ(Mail("a\n\xB0\xA1", folder_.Write("agent.cfg", "KEY value\n").c_str()), "sent");
  ExpectParts(sink.Kept("1.json"),
              {R"("from": "agent@example.com", "to": ["kim@example.com", "lee@example.com", "<>", )"
               R"("park@example.com", "choi@example.com"], "user": null)",
               R"("From": "\"STT Agent\" <agent@example.com>")", R"("Cc": "\"park\" <park@example.com>")",
               R"("To": "\"kim\" <kim@example.com>, \"lee\" <lee@example.com>, <>")",
               R"("Subject": "[ IP ] stt")", R"("attached": ["agent.cfg"], "defects": [])"});
  EXPECT_EQ(sink.Kept("1.attached-1"), "KEY value\n");
  ExpectParts(sink.Kept("1.html"), {">a<br />\xEA\xB0\x80</div>"});
}

TEST_F(AlarmTest, MailsHaveThePictureOfTheirKind) {
  EXPECT_EQ(
      MailOf("a\n\xB0\xA1"),
      std::string("<html><head><title>No Title</title><body><div>\t<div style='margin:auto;width:800px;'>"
                  "\t\t<div style='padding:5pt 5pt 5pt 7.5pt;background-color:#6365A2;font-size:15pt;"
                  "font-family:\"Segoe UI\",sans-serif;color:white;'>[ IP ] stt\t\t</div>\t\t"
                  "<div style='background:#F3F2F1;padding:18pt 7.5pt 15pt 9pt;'>\t\t\t<table>\t\t\t\t<tr>"
                  "\t\t\t\t\t<td style='padding:7.5pt 7.5pt 0 0;vertical-align:top;width:40px;'>"
                  "\t\t\t\t\t\t<img src='") +
          alarms::PictureOf(2, &AlarmPictures::mail) +
          "' width='40px' style='width:40px; max-width:40px' />\t\t\t\t\t</td>\t\t\t\t\t"
          "<td style='padding:7.5pt 7.5pt 7.5pt 7.5pt;background-color:#FFFFFF;'>\t\t\t\t\t\t"
          "<div style='margin-bottom:7.5pt;'>\t\t\t\t\t\t\t<b style='font-size:9pt;font-family:\"Segoe UI\","
          "sans-serif;color:#323130;'>Label</b>\t\t\t\t\t\t\t<span>&nbsp;&nbsp;&nbsp;&nbsp;</span>"
          "\t\t\t\t\t\t\t<span style='font-size:9pt;font-family:\"Segoe UI\",sans-serif;color:gray'>" +
          alarms::BodyDate(0) +
          "</span>"
          "\t\t\t\t\t\t</div>\t\t\t\t\t\t<div style='word-break:break-word;;font-size:10.5pt;"
          "font-family:\"Segoe UI\",sans-serif;color:#323130'>a<br />\xEA\xB0\x80</div>\t\t\t\t\t</td>"
          "\t\t\t\t</tr>\t\t\t</table>\t\t</div>\t</div></div></body></html>");
}

TEST_F(AlarmTest, PostsAreFormsOrCardsWithThePictureOfTheirKind) {
  EXPECT_EQ(
      PostOf("a\n\xB0\xA1\n", "[ IP ] stt", 3),
      std::string(R"({"@type": "MessageCard","@context": "http://schema.org/extensions",)"
                  R"("themeColor": "0076D7","summary": "[ IP ] stt","sections": [{   )"
                  R"("activityTitle": "[ IP ] stt",   "activitySubtitle": "Label",   "activityImage": ")") +
          alarms::PictureOf(4, &AlarmPictures::webhook) +
          R"(",   "facts": [{       "name": "Assigned IP",       "value": "10.1.2.3"    }, {       )"
          R"("name": "Send date",       "value": ")" +
          alarms::BodyDate(0) +
          R"("    }, {       "name": "Message",       )"
          "\"value\": \"a<br />\xEA\xB0\x80<br />\"    }],    \"markdown\": true}]}");
  EXPECT_EQ(PostOf("x\ny", "[ IP ] stt", 2),
            "payload={\t\t\t\t\"channel\": \"#test\",              \"username\": \"Label\",     "
            "\t        \"text\": \"[ IP ] stt " +
                alarms::BodyDate(0) +
                "<br />x<br />y\",              \"icon_emoji\": "
                "\":ghost:\"         }");
}

TEST_F(AlarmTest, BodiesAreCutAtACharacterWithTheirLayoutWhole) {
  constexpr size_t LIMIT = 819'199;
  std::string long_text;
  for (int i = 0; i < 300'000; ++i) long_text += "\xB0\xA1\"";
  const std::pair<bool, bool> rows[] = {{false, false}, {true, false}, {true, true}};
  for (const auto& [strict, adaptive] : rows) {
    m_webhook_strict = strict ? 1 : 0;
    m_webhook_card = adaptive ? 1 : 0;
    for (const std::string& title : {std::string("t"), std::string("tt"), std::string("ttt"), long_text}) {
      const std::string body = PostOf(long_text, title);
      EXPECT_TRUE(body.size() <= LIMIT && body.size() > LIMIT - 5) << body.size();
      EXPECT_TRUE(body.ends_with("}]}")) << body.substr(body.size() - 100);
    }
  }
  const alarms::BodyLayout brackets = [](const Alarm& alarm, const std::string&) {
    return "[" + alarm.message + "]";
  };
  for (const size_t size : {LIMIT - 2, LIMIT - 1}) {
    EXPECT_EQ(alarms::FillBodyLayout({0, "", "", std::string(size, 'x'), ""}, brackets, ""),
              "[" + std::string(LIMIT - 2, 'x') + "]");
  }
}

TEST(AlarmBodyTest, EveryKindHasItsPictures) {
  const std::pair<size_t, size_t> sizes[] = {{998, 7554}, {854, 6846}, {1022, 7274}, {938, 7106}};
  for (uint32_t kind = 1; kind <= 4; ++kind) {
    const std::string mail = alarms::PictureOf(kind, &AlarmPictures::mail);
    const std::string webhook = alarms::PictureOf(kind, &AlarmPictures::webhook);
    EXPECT_EQ(std::pair(mail.size(), webhook.size()), sizes[kind - 1]);
    for (const std::string& picture : {mail, webhook})
      EXPECT_TRUE(picture.starts_with("data:image/png;base64,iVBORw0KGgo"));
    // Eight bits, true colour, no transparency (bytes 24 to 26): the ground fills the square that chats cut
    // round.
    EXPECT_EQ(webhook.substr(22 + 32, 4), "CAIA") << kind;
  }
}

// What the files say is up to the fuzz target "recipients".
TEST(RecipientsTest, ListsAreReplacedAndFilesMade) {
  const support::TempFolder folder;
  const std::string to = folder.Write("to", "kim a@x\n");
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_EQ(GetEMailList(to.c_str(), (folder / "cc").c_str(), (folder / "none/bcc").c_str()), 1);
  EXPECT_TRUE(std::filesystem::exists(folder / "cc"));
  const auto before = gEmailLists.Get();
  ASSERT_EQ(GetEMailList(pipe.c_str(), folder.Path().c_str(), to.c_str()), 1);
  const auto after = gEmailLists.Get();
  EXPECT_TRUE(before->receiver_count == 1 && before->reference_count == 0 && before->blind_count == -1);
  EXPECT_TRUE(after->receiver_count == 0 && after->reference_count == 0 && after->blind_count == 1);
  EXPECT_STREQ(before->receivers->At(0).address, "a@x");
}

}  // namespace
