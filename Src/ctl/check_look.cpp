#include "ctl/check_look.h"

#include <fcntl.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "Tovik/config/config.h"
#include "base/number.h"
#include "base/unique_handles.h"
#include "ctl/agent_config.h"
#include "ctl/process_table.h"
#include "ctl/running_agent.h"
#include "ctl/small_file.h"
#include "sysinfo/listening_port.h"
#include "tls/tls_socket.h"

namespace ctl {
namespace {

constexpr size_t FILE_LIMIT = 4 << 20;
constexpr size_t PID_LIMIT = 1024;
constexpr const char* LOOKED_AT[] = {"SHELL_FILE",    "CFG_FILE",       "ADM_PID_FILE",
                                     "WATCH_PATH",    "HANG_PATH",      "TXT_PATH",
                                     "RECEIVER_FILE", "REFERENCE_FILE", "BLIND_FILE"};
constexpr std::string_view LISTS = "RECEIVER_FILE REFERENCE_FILE BLIND_FILE";

struct CertificateFree {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
using UniqueCertificate = std::unique_ptr<X509, CertificateFree>;

Setting SettingOf(const ConfigKey& key) {
  Setting setting;
  setting.is_number = key.text == nullptr;
  setting.is_option = key.most != ConfigKey::NO_LIMIT;
  if (key.text != nullptr) {
    setting.text = key.text;
    setting.number = base::LeadingNumber(setting.text);
    return setting;
  }
  setting.number = key.number != nullptr ? *key.number : gSendInfo->*key.threshold;
  setting.text = std::to_string(setting.number);
  return setting;
}

void TakeSettings(Facts* facts) {
  for (const ConfigKey& key : ConfigKeys()) facts->settings[key.name] = SettingOf(key);
  for (const ConfigPiece& piece : facts->pieces) {
    const auto found = facts->settings.find(piece.key);
    if (found != facts->settings.end()) {
      found->second.line = piece.line;
      found->second.value = piece.value;
    } else if (piece.key.starts_with(CONFIG_SERVER_PREFIX)) {
      const size_t colon = piece.value.find(':');
      const int64_t port = colon == std::string::npos
                               ? 0
                               : base::LeadingNumber(std::string_view(piece.value).substr(colon + 1));
      facts->servers.push_back({piece.line, piece.key, piece.value, piece.value.substr(0, colon), port});
    }
  }
}

// When a process started, to the second. /proc counts clock ticks since the boot.
std::time_t StartTime(const ProcessRow& process) {
  timespec since_boot{};
  ::clock_gettime(CLOCK_BOOTTIME, &since_boot);
  const auto started = static_cast<std::time_t>(process.start) / ::sysconf(_SC_CLK_TCK);
  return std::time(nullptr) - (since_boot.tv_sec - started);
}

void TakeProcesses(Facts* facts) {
  const std::vector<RunningAgent> agents = FindAgents();
  for (const RunningAgent& agent : agents) {
    if (!SameFile(agent.config, facts->file)) continue;
    facts->agent.running = true;
    facts->agent.pid = agent.process.pid;
    facts->agent.started = StartTime(agent.process);
  }
  const auto is_agent = [&](const ProcessRow& row) {
    for (const RunningAgent& agent : agents) {
      if (agent.process.pid == row.pid) return true;
    }
    return false;
  };
  VisitProcesses([&](const ProcessRow& row) {
    const bool named = row.name == facts->Text("PROC_NAME") || row.name == facts->Text("WATCHDOG_NAME");
    if (named && row.pid != ::getpid()) facts->host.named.push_back({row.pid, row.name, is_agent(row)});
    return true;
  });
}

bool Listens(int64_t port) {
  sysinfo::ListeningPort found;
  if (port > 0 && port <= UINT16_MAX) sysinfo::ReadListeningPort(static_cast<uint16_t>(port), &found);
  return found.listening;
}

int Access(const std::string& path, int mode) {
  return ::access(path.c_str(), mode) == 0 ? 0 : errno;
}

// errno of creating something in that folder or, when it is missing, of creating it; 0: allowed.
int Fillable(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  struct stat status {};
  while (::stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) return errno;
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
      path = ".";
    } else {
      path.resize(slash == 0 ? 1 : slash);
    }
  }
  return S_ISDIR(status.st_mode) ? Access(path, W_OK | X_OK) : ENOTDIR;
}

std::string FolderOf(std::string_view path) {
  const size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? "." : path.substr(0, slash + 1));
}

Look LookAtPath(const std::string& path, bool list) {
  Look look;
  look.path = path;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    look.error = errno;
    return look;
  }
  look.regular = S_ISREG(status.st_mode);
  look.folder = S_ISDIR(status.st_mode);
  look.mode = status.st_mode;
  look.read = Access(path, R_OK);
  look.write = Access(path, W_OK);
  look.execute = Access(path, X_OK);
  if (list && look.regular && look.read == 0) {
    const auto text = ReadSmallFile(path, FILE_LIMIT);
    if (!text) look.read = errno;
    look.text = text.value_or("");
  }
  return look;
}

// As Look::fill: whether files can be created in a folder, or a file written or created.
int FillOf(const Look& look) {
  if (look.error == 0 && !look.folder && !look.path.ends_with('/')) return look.regular ? look.write : EINVAL;
  return Fillable(look.path.ends_with('/') ? look.path : FolderOf(look.path));
}

std::optional<int64_t> DaysLeft(const std::string& path) {
  const base::UniqueFile file(std::fopen(path.c_str(), "re"));
  char none[] = "";
  const UniqueCertificate certificate(file ? PEM_read_X509(file.get(), nullptr, nullptr, none) : nullptr);
  int days = 0;
  int seconds = 0;
  if (certificate == nullptr ||
      ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate.get())) != 1)
    return std::nullopt;
  if (seconds == 0) return days;
  return seconds < 0 ? days - 1 : days + 1;
}

void LookAtCertificate(Facts* facts) {
  const std::string& file = facts->Text("CERT_FILE");
  if (facts->Number("SSL_CHECK") == 0 || file.empty()) return;
  LVCSR_SOCK_HEAD head{};
  SSLInit(&head);
  if (CreateClientContext(&head) == nullptr) return;
  facts->certificate.unusable = CertificateLoad(&head, file.c_str(), facts->Text("KEY_FILE").c_str(),
                                                facts->Text("FILE_PASSWORD").c_str()) != 1;
  facts->certificate.no_authority = CACheck(&head, facts->Text("CA_FILE").c_str()) != 1;
  facts->certificate.days_left = DaysLeft(file);
  SSLClose(&head);
}

}  // namespace

void ParsePortRange(std::string_view text, HostFacts* host) {
  const size_t blank = text.find_first_of(" \t");
  if (blank == std::string_view::npos) return;
  host->first_port = static_cast<int>(base::LeadingNumber(text));
  host->last_port = static_cast<int>(base::LeadingNumber(text.substr(blank)));
}

bool HidesProcesses(std::string_view mounts) {
  bool hidden = false;  // the last mount counts
  while (!mounts.empty()) {
    const std::string_view line = mounts.substr(0, mounts.find('\n'));
    mounts.remove_prefix(line.size() == mounts.size() ? line.size() : line.size() + 1);
    if (line.find(" /proc proc ") == std::string_view::npos) continue;
    const size_t at = line.find("hidepid=");
    hidden = at != std::string_view::npos && line.substr(at + 8, 1) != "0" && line.substr(at + 8, 3) != "off";
  }
  return hidden;
}

std::optional<Facts> ReadFacts(const std::string& file, std::string* complaint) {
  const std::optional<AgentConfig> config = LoadAgentConfig(file, complaint);
  if (!config) return std::nullopt;
  Facts facts;
  facts.file = config->file;
  struct stat status {};
  if (::stat(facts.file.c_str(), &status) == 0) {
    facts.mode = status.st_mode;
    facts.changed = status.st_mtime;
  }
  facts.pieces = SplitConfig(ReadSmallFile(facts.file, FILE_LIMIT).value_or(""));
  TakeSettings(&facts);
  TakeProcesses(&facts);
  return facts;
}

void LookAtFiles(Facts* facts) {
  for (const char* key : LOOKED_AT) {
    Look look = LookAtPath(facts->Text(key), LISTS.find(key) != std::string_view::npos);
    look.fill = FillOf(look);
    facts->looks[key] = std::move(look);
  }
  LookAtCertificate(facts);
  ParsePortRange(ReadSmallFile("/proc/sys/net/ipv4/ip_local_port_range").value_or(""), &facts->host);
  facts->host.port_listens = Listens(facts->Number("ASR_PORT"));
  facts->host.hides_processes = HidesProcesses(ReadSmallFile("/proc/self/mounts", FILE_LIMIT).value_or(""));
  facts->host.engine_pid_file =
      base::LeadingNumber(ReadSmallFile(facts->Text("SVC_PID_FILE"), PID_LIMIT).value_or(""));
}

}  // namespace ctl
