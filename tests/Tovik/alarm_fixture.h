// Sends alarms to scripted servers.
#ifndef TESTS_TOVIK_ALARM_FIXTURE_H
#define TESTS_TOVIK_ALARM_FIXTURE_H

#include <gtest/gtest.h>

#include <initializer_list>

#include "Tovik/alarms/alarm_mail.h"
#include "Tovik/alarms/alarm_mail_body.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/alarms/webhook_body.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/traced.h"
#include "support/process.h"

namespace test {

using support::Has;
using support::Peer;
using support::SetText;

class AlarmTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY"}) unsetenv(name);
    ASSERT_EQ(AlarmTransportInit(), 0);
    SetText(gIpaddr, "10.1.2.3");
    SetText(m_send_name, "STT Agent");
    SetText(m_send_email, "agent@example.com");
    SetText(m_stmp_server_url, "127.0.0.1");
    SetText(m_mail_url, "");
    m_stmp_auth = m_webhook_apps = 1;
    m_text_repair = m_mail_skip_bad = m_mail_tls = m_mail_timeout = 0;
    m_webhook_timeout = m_webhook_strict = m_webhook_card = 0;
    Lists("kim kim@example.com\nlee lee@example.com\n");
  }
  void Lists(const std::string& to, const std::string& cc = "", const std::string& bcc = "") const {
    ASSERT_EQ(GetEMailList(folder_.Write("to", to).c_str(), folder_.Write("cc", cc).c_str(),
                           folder_.Write("bcc", bcc).c_str()),
              1);
  }
  static void Aim(const std::string& port) {
    SetText(m_smtp_server_port, port);
    SetText(m_webhook_server_url, "http://127.0.0.1:" + port + "/hook");
  }
  // What the sending says on standard error; "sent" when it says 1.
  template <typename Send>
  static std::string Outcome(Send send) {
    testing::internal::CaptureStderr();
    const int result = send();
    const std::string errors = testing::internal::GetCapturedStderr();
    return result == 1 && errors.empty() ? "sent" : errors + (result == -1 ? "" : "?");
  }
  static std::string Mail(const char* message, const char* attachment = nullptr) {
    return Outcome([&] { return SendAlarmEmail("[ IP ] stt", 2, "Label", message, attachment); });
  }
  static std::string Post(const char* message, uint32_t kind = 2) {
    return Outcome([&] { return SendAlarmWebHook("[ IP ] stt", kind, "Label", message); });
  }
  static void ExpectParts(const std::string& record, std::initializer_list<const char*> parts) {
    for (const char* part : parts) EXPECT_TRUE(Has(record, part));
  }
  // What is mailed and what is posted for this message; if nothing is, why.
  static std::string MailOf(const std::string& message) {
    const char* reason = "";
    const base::UniqueText body = alarms::MailBody({2, "[ IP ] stt", "Label", message, ""}, 0, &reason);
    return body == nullptr ? reason : body.get();
  }
  static std::string PostOf(const std::string& message, const std::string& title = "[ IP ] stt",
                            int64_t apps = 1) {
    const char* reason = "";
    const base::UniqueText body =
        alarms::WebHookBody({4, title, "Label", message, "10.1.2.3"}, apps, 0, &reason);
    return body == nullptr ? reason : body.get();
  }
  support::TempFolder folder_;
};

}  // namespace test

#endif
