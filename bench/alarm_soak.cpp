// Sends alarms on both channels while the recipient lists are reloaded in another thread, and tells what went
// through and how much memory stayed: alarm_soak [ALARMS], 1,000 when not given. Exit status 0 when none was
// lost. The receiving ends are those of the tests (tests/peers).
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "Tovik/alarms/alarm_mail.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/config/config.h"
#include "support/process.h"

namespace {

using support::Peer;
using support::SetText;

constexpr int WARM_UP = 20;

long ResidentKilobytes() {
  const std::string status = support::ReadFile("/proc/self/status");
  const size_t at = status.find("VmRSS:");
  return at == std::string::npos ? -1 : std::atol(status.c_str() + at + 6);
}

// Reloads the lists, now of two recipients and now of three, until told to end.
class Reloading {
 public:
  explicit Reloading(const support::TempFolder& folder)
      : two_(folder.Write("two", "kim kim@example.com\nlee lee@example.com\n")),
        three_(folder.Write("three", "kim kim@example.com\n\nlee lee@example.com\npark park@example.com\n")),
        none_(folder.Write("none", "")) {
    Load();
    thread_ = std::thread([this] {
      while (!done_) Load();
    });
  }
  Reloading(const Reloading&) = delete;
  Reloading& operator=(const Reloading&) = delete;
  ~Reloading() {
    done_ = true;
    thread_.join();
  }
  int64_t Loads() const { return loads_; }

 private:
  void Load() {
    EMailListFree(*gEmailLists.Get());
    const std::string& receivers = loads_++ % 2 == 0 ? two_ : three_;
    // Without memory the lists stay, and the alarms are counted all the same.
    [[maybe_unused]] const int read = GetEMailList(receivers.c_str(), none_.c_str(), none_.c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::string two_;
  std::string three_;
  std::string none_;
  std::atomic<int64_t> loads_{0};
  std::atomic<bool> done_{false};
  std::thread thread_;
};

struct Sent {
  int mails = 0;
  int posts = 0;
};

Sent SendAlarms(int count) {
  Sent sent;
  const std::string message = "\xC0\xBD\xBC\xBA \xC0\xCE\xBD\xC4 93 %\n" + std::string(500, '-');
  for (int i = 0; i < count; ++i) {
    const auto kind = static_cast<uint32_t>(i % 4 + 1);
    sent.mails += SendAlarmEmail("[ 127.0.0.1 ] soak", kind, "STT Service", message.c_str(), nullptr) == 1;
    sent.posts += SendAlarmWebHook("[ 127.0.0.1 ] soak", kind, "STT Service", message.c_str()) == 1;
  }
  return sent;
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : 1000;
  const support::TempFolder folder;
  const Peer mailSink(folder, "mails", "mail_sink.py", {"--count-only"});
  const Peer webhookSink(folder, "posts", "webhook_sink.py", {"--count-only"});
  if (AlarmTransportInit() != 0 || std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  SetText(m_stmp_server_url, "127.0.0.1");
  SetText(m_smtp_server_port, mailSink.Port());
  SetText(m_send_email, "agent@example.com");
  m_stmp_auth = 1;
  SetText(m_webhook_server_url, "http://127.0.0.1:" + webhookSink.Port() + "/hook");

  const Reloading reloading(folder);
  SendAlarms(WARM_UP);  // what the libraries keep is in place then
  const long before = ResidentKilobytes();
  const auto start = std::chrono::steady_clock::now();
  const Sent sent = SendAlarms(count);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  const long after = ResidentKilobytes();

  const int mails = mailSink.Arrived() - WARM_UP;
  const int posts = webhookSink.Arrived() - WARM_UP;
  std::fprintf(stderr, "mails: %d accepted, %d received, %d lost\n", sent.mails, mails, count - mails);
  std::fprintf(stderr, "posts: %d accepted, %d received, %d lost\n", sent.posts, posts, count - posts);
  std::fprintf(stderr, "lists loaded %ld times, %.1f s, resident %ld kB before and %ld kB after\n",
               static_cast<long>(reloading.Loads()), seconds.count(), before, after);
  return mails == count && posts == count ? 0 : 1;
}
