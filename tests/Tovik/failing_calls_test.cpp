// Every call that can fail on a delivery's way, failed one after the other: nothing stays behind. This
// program contains the shim (system/torture_shim.cpp) that the agent gets preloaded elsewhere.
#include <functional>

#include "Tovik/alarm_fixture.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/reports/report_senders.h"
#include "base/format.h"
#include "system/torture.h"

namespace test {
namespace {

class FailingCalls : public AlarmTest {
 protected:
  struct Held {
    int64_t descriptors;
    int64_t blocks;
    bool operator==(const Held&) const = default;
  };

  FailingCalls() { tortureControl = &control_; }
  ~FailingCalls() override { tortureControl = nullptr; }

  static Held HeldNow() {
    const int64_t blocks = tortureControl->live;
    return {std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}), blocks};
  }
  // Goes with the n-th call failing; 0: none does.
  void Go(const std::function<void()>& go, int64_t n) {
    testing::internal::CaptureStderr();
    control_.count = control_.failed = 0;
    control_.fail_at = n;
    control_.armed = 1;
    try {
      go();
    } catch (const std::bad_alloc&) {
    }
    control_.armed = 0;
    testing::internal::GetCapturedStderr();
  }
  // Goes with each call failing once, then with none: the library's caches are full again. Tells what is held
  // then; the trail has the calls that left something behind.
  Held FailEach(const std::function<void()>& go, std::string* trail) {
    trail->clear();
    for (int64_t n = control_.failed = 1; control_.failed != 0; ++n) {
      const Held before = HeldNow();
      Go(go, n);
      const Held after = HeldNow();
      if (after != before)
        *trail += base::Format("; call %d, %s: descriptors %+d, blocks %+d", static_cast<int>(n),
                               control_.name, static_cast<int>(after.descriptors - before.descriptors),
                               static_cast<int>(after.blocks - before.blocks));
    }
    EXPECT_GT(control_.count, 10);
    Go(go, 0);
    return HeldNow();
  }

  TortureControl control_{};
};

TEST_F(FailingCalls, LeaveNothingBehind) {
  const std::string file = folder_.Write("attached.log", "a line\n");
  const Peer mails(folder_, "mails", "mail_sink.py");
  const Peer posts(folder_, "posts", "webhook_sink.py");
  const Peer reports(folder_, "reports", "mgmt_server.py");
  const Peer engine(folder_, "engine", "engine_peer.py", {"--script", "garbage"});
  SVC_SERVER server{};
  SetText(server.address, "127.0.0.1");
  server.port = std::stol(reports.Port());
  m_PROC_PORT = std::stol(engine.Port());
  m_mail_timeout = 1;
  const auto mail_setting = [&](int64_t skip_bad, const std::string& url) {
    Aim(mails.Port());
    m_mail_skip_bad = skip_bad;
    SetText(m_mail_url, url);
  };
  const auto mail = [&] { SendAlarmEmail("[ 192.0.2.1 ] stt", 2, "Label", "message", file.c_str()); };
  const auto post = [] { SendAlarmWebHook("[ 192.0.2.1 ] stt", 2, "Label", "message"); };
  const std::tuple<const char*, std::function<void()>, std::function<void()>> ways[] = {
      {"mail", [&] { mail_setting(0, ""); }, mail},
      {"mail with its file read first", [&] { mail_setting(1, ""); }, mail},
      {"mail by URL", [&] { mail_setting(1, "smtp://" + mails.Address()); }, mail},
      {"post", [&] { Aim(posts.Port()); }, post},
      {"report", [] {}, [&] { send_ch_status_thread(&server); }},
      {"query of the engine", [] {}, [] { SHM_OPEN(); }}};
  for (const auto& [way, set, go] : ways) {
    set();
    std::string trail;
    trail.reserve(10000);  // a block that is held all the time
    const Held before = FailEach(go, &trail);
    EXPECT_EQ(FailEach(go, &trail), before) << way << trail;
  }
}

}  // namespace
}  // namespace test
