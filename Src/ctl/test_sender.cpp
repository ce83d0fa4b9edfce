#include "ctl/test_sender.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include "DIOSVC/CDIOSVC.h"
#include "DIOSVC/report_types.h"
#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/mail.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/alarms/webhook_post.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "base/format.h"
#include "ctl/small_file.h"
#include "smtp/smtp.h"

namespace ctl {
namespace {

using std::chrono::steady_clock;

constexpr size_t BODY_LIMIT = 1000;     // of a chat's answer
constexpr size_t TOLD_LIMIT = 1 << 20;  // of all that one child tells
constexpr const char* HIDDEN = "***\r\n";

// --- In the child. Each process sends one alarm, so its state may be global.
int tellFd = -1;
bool hiding = false;  // credentials are being sent
std::vector<std::string> secrets;
std::string chatBody;

// Writes a record: who, the length in eight digits, the text.
void Tell(Heard::Who who, std::string text) {
  for (const std::string& secret : secrets) {
    for (size_t at = 0; (at = text.find(secret, at)) != std::string::npos;)
      text.replace(at, secret.size(), "***");
  }
  const std::string record = base::Format("%c%08zu", static_cast<char>(who), text.size()) + text;
  WriteAll(tellFd, record.data(), record.size());
}

void HearMail(const char* who, std::string_view text) {
  if (*who == 'S') {
    // 334 asks for more credentials.
    if (hiding && !text.starts_with("334")) hiding = false;
    Tell(Heard::Who::PEER, std::string(text));
    return;
  }
  if (text.starts_with("AUTH ")) {
    hiding = true;
    const size_t blank = text.find(' ', 5);
    Tell(Heard::Who::CLIENT, std::string(text.substr(0, blank)) + " " + HIDDEN);
  } else {
    Tell(Heard::Who::CLIENT, hiding ? HIDDEN : std::string(text));
  }
}

size_t TakeBody(char* data, size_t size, size_t count, void* /*unused*/) {
  chatBody.append(data, std::min(size * count, BODY_LIMIT - std::min(chatBody.size(), BODY_LIMIT)));
  return size * count;
}

void BeforePost(CURL* handle) {
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, TakeBody);
}

void BehindPost(CURL* handle, CURLcode code) {
  if (code != CURLE_OK) return Tell(Heard::Who::FAILURE, curl_easy_strerror(code));
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  Tell(Heard::Who::PEER, base::Format("%03ld ", status) + chatBody);
}

void HearServer(std::string_view body) {
  Tell(Heard::Who::PEER, std::string(body));
}

Alarm TestAlarm() {
  return {ALARM_KIND_THRESHOLD,
          base::Format("[ %s ] %s Test - nothing has happened", gIpaddr, m_sz_proc_name),
          "STT Service Moniter",
          base::Format("%s is well: this alarm only tests the way to you", m_sz_proc_name),
          gIpaddr,
          nullptr};
}

void SendMail() {
  smtp_overhear = HearMail;
  MailAlarm(TestAlarm());
}

void SendPost() {
  const std::string url = m_webhook_server_url;
  const size_t host = url.find("://");
  const size_t path = url.find('/', host == std::string::npos ? 0 : host + 3);
  if (path != std::string::npos && path + 1 < url.size()) secrets.push_back(url.substr(path + 1));
  alarms::postWatch = {BeforePost, BehindPost};
  if (AlarmTransportInit() == 0) PostAlarm(TestAlarm());
}

void SendFrame(const Trial& trial) {
  const SVC_SERVER& server = gSendInfo->servers[trial.server];
  svc_overhear = HearServer;
  CDIOSVC link;
  if (link.initialize_svc(server.index, server.address, server.port, 0, "", 0) != 1) {
    const int error = errno;
    return Tell(Heard::Who::FAILURE, std::strerror(error));
  }
  Tell(Heard::Who::CONNECTED, "");
  if (trial.start_alarm) {
    link.DIO_SVC_PROC(REPORT_ALARM, nullptr);  // null: the start alarm has code 0
  } else {
    link.SOCK_SVC_OPEN();
  }
}

[[noreturn]] void RunChild(const Trial& trial, int fd, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  tellFd = fd;
  // What the agent's code prints is of no use here.
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, stream);
  if (*m_stmp_auth_password != '\0') secrets.emplace_back(m_stmp_auth_password);
  switch (trial.channel) {
    case Channel::MAIL:
      SendMail();
      break;
    case Channel::CHAT:
      SendPost();
      break;
    case Channel::SERVER:
      SendFrame(trial);
      break;
  }
  ::_exit(0);
}

// --- In the caller.
struct Running {
  Trial* trial;
  pid_t child = -1;
  base::UniqueFd pipe;
  std::string told;
};

std::vector<Heard> Parsed(std::string_view told) {
  constexpr size_t HEAD = 9;
  std::vector<Heard> heard;
  while (told.size() >= HEAD) {
    const auto length = static_cast<size_t>(std::atoll(std::string(told.substr(1, HEAD - 1)).c_str()));
    if (told.size() < HEAD + length) break;
    heard.push_back({static_cast<Heard::Who>(told[0]), std::string(told.substr(HEAD, length))});
    told.remove_prefix(HEAD + length);
  }
  return heard;
}

Running StartTrial(Trial* trial) {
  Running running{trial, -1, {}, {}};
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return running;
  running.pipe.Reset(ends[0]);
  const base::UniqueFd write(ends[1]);
  const pid_t parent = ::getpid();
  running.child = ::fork();
  if (running.child == 0) RunChild(*trial, write.Get(), parent);
  return running;
}

// Reads what the child tells. False at the end.
bool TakeWords(Running* running) {
  char buffer[4096];
  const ssize_t got = ::read(running->pipe.Get(), buffer, sizeof buffer);
  if (got < 0 && errno == EINTR) return true;
  if (got <= 0) return false;
  running->told.append(
      buffer, std::min(static_cast<size_t>(got), TOLD_LIMIT - std::min(running->told.size(), TOLD_LIMIT)));
  return true;
}

void Finish(Running* running, bool ended, steady_clock::time_point start) {
  running->pipe.Reset();
  if (running->child > 0) {
    ::kill(running->child, SIGKILL);
    ::waitpid(running->child, nullptr, 0);
  }
  running->trial->ended = ended;
  running->trial->heard = Parsed(running->told);
  running->trial->seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
}

}  // namespace

void RunTrials(std::vector<Trial>* trials, int64_t milliseconds) {
  const auto start = steady_clock::now();
  const auto end = start + std::chrono::milliseconds(milliseconds);
  std::vector<Running> running;
  for (Trial& trial : *trials) running.push_back(StartTrial(&trial));
  const auto open = [&] {
    std::vector<pollfd> fds;
    for (const Running& one : running) fds.push_back({one.pipe.Get(), POLLIN, 0});
    return fds;
  };
  while (true) {
    std::vector<pollfd> fds = open();
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now()).count();
    const bool waits = std::any_of(fds.begin(), fds.end(), [](const pollfd& fd) { return fd.fd >= 0; });
    if (!waits || left <= 0) break;
    if (::poll(fds.data(), fds.size(), static_cast<int>(left)) <= 0) continue;
    for (size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].fd >= 0 && fds[i].revents != 0 && !TakeWords(&running[i])) Finish(&running[i], true, start);
    }
  }
  for (Running& one : running) {
    if (one.pipe.Valid()) Finish(&one, false, start);
  }
}

}  // namespace ctl
