#include "ctl/test_sender.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <poll.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "DIOSVC/CDIOSVC.h"
#include "DIOSVC/report_types.h"
#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/alarm_mail.h"
#include "Tovik/alarms/delivery_notices.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/config/url.h"
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
std::vector<std::string> urlSecrets;
std::string chatBody;

// Writes a record: who, the length in eight digits, the text.
void TellHidden(Heard::Who who, std::string_view text) {
  const std::string record = base::Format("%c%08zu", static_cast<char>(who), text.size()).append(text);
  WriteAll(tellFd, record.data(), record.size());
}

void Tell(Heard::Who who, std::string text) {
  text = alarms::WithoutSecrets(std::move(text));
  for (const std::string& secret : urlSecrets) alarms::HideSecret(secret, &text);
  TellHidden(who, text);
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
    const size_t blank = text.find_first_of(" \r\n", 5);
    TellHidden(Heard::Who::CLIENT, std::string(text.substr(0, blank)) + " " + HIDDEN);
  } else if (hiding) {
    TellHidden(Heard::Who::CLIENT, HIDDEN);
  } else {
    Tell(Heard::Who::CLIENT, std::string(text));
  }
}

size_t TakeBody(char* data, size_t size, size_t count, void* /*unused*/) {
  chatBody.append(data, std::min(size * count, BODY_LIMIT - std::min(chatBody.size(), BODY_LIMIT)));
  return size * count;
}

char postFailure[CURL_ERROR_SIZE];  // libcurl's own words

void BeforePost(CURL* handle) {
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, TakeBody);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, postFailure);
}

// Connected, with TLS where that is asked for.
bool Connected(CURL* handle) {
  const char* scheme = nullptr;
  curl_off_t connected = 0;
  curl_off_t secured = 0;
  curl_easy_getinfo(handle, CURLINFO_SCHEME, &scheme);
  curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME_T, &connected);
  curl_easy_getinfo(handle, CURLINFO_APPCONNECT_TIME_T, &secured);
  const bool tls = scheme != nullptr && ::strcasecmp(scheme, "https") == 0;
  return (tls ? secured : connected) > 0;
}

void BehindPost(CURL* handle, CURLcode code) {
  if (Connected(handle)) Tell(Heard::Who::CONNECTED, "");
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  if (code == CURLE_OK) return Tell(Heard::Who::PEER, base::Format("%03ld ", status) + chatBody);
  const char* const words = *postFailure != '\0' ? postFailure : curl_easy_strerror(code);
  Tell(Heard::Who::FAILURE, base::Format("%d %s", static_cast<int>(code), words));
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

// The last words of the agent's sender, as it says them on standard error.
void TellFailures(std::string_view errors, bool sent) {
  constexpr std::string_view FAILED = "smtp failed: ";
  constexpr std::string_view LEFT_OUT = "smtp refused: \"";  // with a name, it was no server that refused
  bool told = sent;
  while (!errors.empty()) {
    const std::string_view line = errors.substr(0, errors.find('\n'));
    errors.remove_prefix(std::min(line.size() + 1, errors.size()));
    if (line.starts_with(LEFT_OUT)) Tell(Heard::Who::LEFT_OUT, std::string(line.substr(LEFT_OUT.size() - 1)));
    if (!line.starts_with(FAILED)) continue;
    Tell(Heard::Who::FAILURE, std::string(line.substr(FAILED.size())));
    told = true;
  }
  if (!told) Tell(Heard::Who::FAILURE, NO_CONVERSION);
}

void SendMail() {
  const base::UniqueFd errors(::memfd_create("errors", MFD_CLOEXEC));
  ::dup2(errors.Get(), STDERR_FILENO);
  smtp_overhear = HearMail;
  const bool sent = MailAlarm(TestAlarm()) == 1;
  ::lseek(errors.Get(), 0, SEEK_SET);
  TellFailures(ReadDescriptor(errors.Get(), TOLD_LIMIT).value_or(""), sent);
}

void SendPost() {
  urlSecrets = UrlSecrets(m_webhook_server_url);
  alarms::postWatch = {BeforePost, BehindPost};
  PostAlarm(TestAlarm());
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

void TakeOnEnvironment(const std::vector<std::string>& environment) {
  if (environment.empty()) return;
  ::clearenv();
  for (const std::string& variable : environment) {
    const size_t sign = variable.find('=');
    if (sign != std::string::npos) ::setenv(variable.substr(0, sign).c_str(), variable.c_str() + sign + 1, 1);
  }
}

[[noreturn]] void RunChild(const Trial& trial, const std::vector<std::string>& environment, int fd,
                           pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  tellFd = fd;
  TakeOnEnvironment(environment);
  // The agent's own words on both streams are of no use here.
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, stream);
  if (AlarmTransportInit() != 0) ::_exit(1);
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

Running StartTrial(Trial* trial, const std::vector<std::string>& environment) {
  Running running{trial, -1, {}, {}};
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return running;
  running.pipe.Reset(ends[0]);
  const base::UniqueFd write(ends[1]);
  const pid_t parent = ::getpid();
  running.child = ::fork();
  if (running.child == 0) RunChild(*trial, environment, write.Get(), parent);
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

void RunTrials(std::vector<Trial>* trials, int64_t milliseconds,
               const std::vector<std::string>& environment) {
  const auto start = steady_clock::now();
  const auto end = start + std::chrono::milliseconds(milliseconds);
  std::vector<Running> running;
  for (Trial& trial : *trials) running.push_back(StartTrial(&trial, environment));
  const auto open = [&] {
    std::vector<pollfd> fds;
    fds.reserve(running.size());
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
