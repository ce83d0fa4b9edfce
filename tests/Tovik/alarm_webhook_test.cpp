#include "Tovik/alarms/webhook.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "Tovik/alarm_sink.h"
#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/core/host.h"
#include "Tovik/core/trace.h"
#include "base/stop.h"

namespace {

using alarm_test::SetText;
using alarm_test::Sink;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

class WebHook : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY"}) unsetenv(name);
    ASSERT_EQ(AlarmTransportInit(), 0);
    SetText(gIpaddr, "10.1.2.3");
    m_webhook_apps = 1;
  }
  void TearDown() override {
    DunraSTTUtils::SetLogLevel(0);
    m_webhook_apps = 0;
    SetText(gIpaddr, "");
    SetText(m_webhook_server_url, "");
  }
  static void Aim(const std::string& port) {
    SetText(m_webhook_server_url, "http://127.0.0.1:" + port + "/hook");
  }
  int Send(const char* message = "m", uint32_t kind = 2) {
    CaptureStderr();
    CaptureStdout();
    const int result = SendAlarmWebHook("[ 10.1.2.3 ] stt", kind, "STT Service Moniter", message);
    output_ = GetCapturedStdout();
    errors_ = GetCapturedStderr();
    return result;
  }
  std::string output_;
  std::string errors_;
};

// As the service gets it, date taken out.
std::string Card(const std::string& picture, const std::string& message) {
  return R"({"@type": "MessageCard","@context": "http://schema.org/extensions","themeColor": "0076D7",)"
         R"("summary": "[ 10.1.2.3 ] stt","sections": [{   "activityTitle": "[ 10.1.2.3 ] stt",   )"
         R"("activitySubtitle": "STT Service Moniter",   "activityImage": ")" +
         picture +
         R"(",   "facts": [{       "name": "Assigned IP",       "value": "10.1.2.3"    }, {       )"
         R"("name": "Send date",       "value": "DATE"    }, {       "name": "Message",       "value": ")" +
         message + R"("    }],    "markdown": true}]})";
}

TEST_F(WebHook, PostsACardWithThePictureOfItsKind) {
  for (const uint32_t kind : {0U, 1U, 2U, 3U, 4U, 5U}) {
    const Sink sink("webhook_sink.py");
    Aim(sink.Port());
    ASSERT_EQ(Send("a\n\xB0\xA1\n", kind), 1) << errors_;
    const std::string record = sink.Kept("1.json");
    EXPECT_EQ(alarm_test::WithoutDate(sink.Kept("1.body"), "\"Send date\",       \"value\": \""),
              Card(alarms::PictureOf(kind, &alarms::AlarmPictures::webhook), "a<br />\xEA\xB0\x80<br />"));
    for (const char* part : {R"("method": "POST")", R"("path": "/hook")", R"("parsed": true)",
                             R"("content-type": "application/json")"}) {
      EXPECT_NE(record.find(part), std::string::npos) << part << " in " << record;
    }
  }
}

TEST_F(WebHook, OnlyAppsTwoIsSlack) {
  for (const int64_t apps : {0, 2, 3}) {
    const Sink sink("webhook_sink.py");
    Aim(sink.Port());
    m_webhook_apps = apps;
    ASSERT_EQ(Send("x\ny"), 1);
    const std::string body = sink.Kept("1.body");
    if (apps != 2) {
      EXPECT_EQ(body.find("{\"@type\""), 0U);
      continue;
    }
    EXPECT_EQ(
        alarm_test::WithoutDate(body, "stt "),
        "payload={\t\t\t\t\"channel\": \"#test\",              \"username\": \"STT Service Moniter\",     "
        "\t        \"text\": \"[ 10.1.2.3 ] stt DATE<br />x<br />y\",              \"icon_emoji\": "
        "\":ghost:\"         }");
    EXPECT_NE(sink.Kept("1.json").find(R"("content-type": "application/json")"), std::string::npos);
  }
}

TEST_F(WebHook, DoesNotLookAtTheStatusNorFollow) {
  for (const auto& options : {std::vector<std::string>{"--status", "500"}, {"--behaviour", "redirect"}}) {
    const Sink sink("webhook_sink.py", options);
    Aim(sink.Port());
    EXPECT_EQ(Send(), 1);
    EXPECT_EQ(errors_, "");
    EXPECT_FALSE(sink.Has("2.json"));
  }
}

TEST_F(WebHook, TellsTransferErrors) {
  const Sink resetting("webhook_sink.py", {"--behaviour", "reset"});
  int refusing = 0;
  { refusing = support::Listener().Port(); }
  const struct {
    std::string url, error;
  } cases[] = {
      {"http://127.0.0.1:" + resetting.Port() + "/", ""},  // found out when sending or when receiving
      {"http://127.0.0.1:" + std::to_string(refusing) + "/", "Couldn't connect to server\n"},
      {"nothing://127.0.0.1/", "Unsupported protocol\n"},
      {"", "URL using bad/illegal format or missing URL\n"},
  };
  for (const auto& entry : cases) {
    SetText(m_webhook_server_url, entry.url);
    EXPECT_EQ(Send(), -1);
    EXPECT_TRUE(errors_.starts_with("curl_easy_perform() failed: " + entry.error)) << entry.url << errors_;
  }
}

TEST_F(WebHook, ATextThatDoesNotConvertIsTracedAndNotPosted) {
  const Sink sink("webhook_sink.py");
  Aim(sink.Port());
  DunraSTTUtils::SetLogLevel(TRACE_ERROR);
  EXPECT_EQ(Send("hanja \xCA\xA1"), -1);
  EXPECT_NE(output_.find("[ERROR]"), std::string::npos);
  EXPECT_NE(output_.find("WebHook lost: [ 10.1.2.3 ] stt, kind 2: its text does not convert to UTF-8"),
            std::string::npos);
  EXPECT_FALSE(sink.Has("1.body"));
}

TEST_F(WebHook, AMessageTooLongIsCutAndTheCardStaysWhole) {
  const Sink sink("webhook_sink.py");
  Aim(sink.Port());
  ASSERT_EQ(Send(std::string(900'000, 'x').c_str()), 1);
  EXPECT_NE(sink.Kept("1.json").find(R"("parsed": true)"), std::string::npos);
  EXPECT_EQ(sink.Kept("1.body").size(), 819'199U);
}

// In a process of its own, as a stop is for good.
TEST_F(WebHook, AStopCutsASilentService) {
  const support::Listener silent;
  Aim(std::to_string(silent.Port()));
  EXPECT_EXIT(
      {
        using std::chrono::milliseconds;
        const auto start = std::chrono::steady_clock::now();
        if (base::StopPrepare() < 0) _exit(2);
        base::StopRequest();
        const int result = SendAlarmWebHook("t", 1, "l", "m");
        const auto passed = std::chrono::steady_clock::now() - start;
        _exit(result == -1 && passed >= milliseconds(4900) && passed < milliseconds(8000) ? 0 : 1);
      },
      testing::ExitedWithCode(0), "Operation was aborted by an application callback");
}

}  // namespace
