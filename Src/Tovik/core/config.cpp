#include "Tovik/core/config.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "Tovik/core/config_line.h"
#include "base/format.h"
#include "base/owners.h"

char m_sz_configfile[CONFIG_LONG_TEXT];
char m_sz_proc_name[CONFIG_TEXT];
char m_sz_watchdog_name[CONFIG_TEXT];
char m_sz_base_path[CONFIG_TEXT];
char m_sz_debug_path[CONFIG_TEXT];
char m_sz_recg_path[CONFIG_TEXT];
int64_t m_PROC_PORT;
char m_sz_proc_file[CONFIG_TEXT];
char m_sz_shell_file[CONFIG_TEXT];
char m_sz_shell_method[CONFIG_TEXT];
char m_sz_cfg_file[CONFIG_TEXT];
char m_sz_svc_pid_file[CONFIG_TEXT];
char m_sz_touch_file[CONFIG_TEXT];
char m_sz_adm_pid_file[CONFIG_TEXT];
int64_t m_ssl_check;
char m_sz_cert_file[CONFIG_TEXT];
char m_sz_key_file[CONFIG_TEXT];
char m_sz_ca_file[CONFIG_TEXT];
char m_sz_ssl_password[CONFIG_TEXT];
int64_t m_restart_check;
int64_t m_restart_period;
int64_t m_First_Alarm_Flag;
int64_t m_txt_save;
char m_sz_txt_path[CONFIG_TEXT];
char m_sz_svc_txt_path[CONFIG_LONG_TEXT];
int64_t m_log_level;
int64_t m_log_hostname_inc_flag;
int64_t m_Hang_Time;
int64_t m_hang_save_flag;
char m_hang_path[CONFIG_TEXT];
int64_t m_result_check;
char m_result_check_time[CONFIG_LONG_TEXT];
int64_t m_send_email_used;
char m_stmp_server_url[CONFIG_LONG_TEXT];
char m_smtp_server_port[CONFIG_LONG_TEXT];
int64_t m_stmp_connection_security;
int64_t m_stmp_flags;
int64_t m_stmp_auth;
char m_stmp_auth_id[CONFIG_LONG_TEXT];
char m_stmp_auth_password[CONFIG_LONG_TEXT];
char m_send_name[CONFIG_LONG_TEXT];
char m_send_email[CONFIG_LONG_TEXT];
char m_receiver_email[CONFIG_LONG_TEXT];
char m_reference_email[CONFIG_LONG_TEXT];
char m_blind_email[CONFIG_LONG_TEXT];
int64_t m_errorlog_period;
int64_t m_send_webhook_used;
int64_t m_webhook_apps;
char m_webhook_server_url[CONFIG_LONG_TEXT];

char g_szDebugMsg[512];
SEND_INFO* gSendInfo;

namespace {

constexpr int LINE_SIZE = 1024;
constexpr size_t PATH_WORK_SIZE = 8192;
constexpr const char* SERVER_PREFIX = "ALARM_";

// One key of the file and where its value goes: a text (with the base that a relative path is taken from), a
// number, or a threshold of the server table's block.
struct Key {
  const char* name;
  char* text = nullptr;
  int size = 0;
  const char* base = nullptr;
  int64_t* number = nullptr;
  int64_t SEND_INFO::*threshold = nullptr;

  template <int SIZE>
  constexpr Key(const char* key, char (&buffer)[SIZE], const char* pathBase = nullptr)
      : name(key), text(buffer), size(SIZE), base(pathBase) {}
  constexpr Key(const char* key, int64_t* value) : name(key), number(value) {}
  constexpr Key(const char* key, int64_t SEND_INFO::*value) : name(key), threshold(value) {}
};

constexpr Key KEYS[] = {
    {"PROC_NAME", m_sz_proc_name},
    {"WATCHDOG_NAME", m_sz_watchdog_name},
    {"BASE_PATH", m_sz_base_path},
    {"DEBUG_PATH", m_sz_debug_path},
    {"RECG_PATH", m_sz_recg_path},
    {"ASR_PORT", &m_PROC_PORT},
    {"PROC_FIlE", m_sz_proc_file, m_sz_base_path},
    {"SHELL_FILE", m_sz_shell_file, m_sz_base_path},
    {"SHELL_METHOD", m_sz_shell_method},
    {"CFG_FILE", m_sz_cfg_file, m_sz_base_path},
    {"SVC_PID_FILE", m_sz_svc_pid_file, m_sz_base_path},
    {"TOUCH_ADMIN_FILE", m_sz_touch_file, m_sz_base_path},
    {"ADM_PID_FILE", m_sz_adm_pid_file, m_sz_base_path},
    {"SSL_CHECK", &m_ssl_check},
    {"CERT_FILE", m_sz_cert_file},
    {"KEY_FILE", m_sz_key_file},
    {"CA_FILE", m_sz_ca_file},
    {"FILE_PASSWORD", m_sz_ssl_password},
    {"RESTART_CHECK", &m_restart_check},
    {"RESTART_CHECK_SEC", &m_restart_period},
    {"CPU_OVER_VALUE", &SEND_INFO::cpu_over_value},
    {"MEM_OVER_VALUE", &SEND_INFO::mem_over_value},
    {"CH_OVER_VALUE", &SEND_INFO::ch_over_value},
    {"FIRST_ALARM_SEND", &m_First_Alarm_Flag},
    {"WATCH_SAVE", &m_txt_save},
    {"WATCH_PATH", m_sz_txt_path, m_sz_debug_path},
    {"TXT_PATH", m_sz_svc_txt_path, m_sz_debug_path},
    {"LOG_LEVEL", &m_log_level},
    {"LOG_HOSTNAME_INC", &m_log_hostname_inc_flag},
    {"HANG_TIME", &m_Hang_Time},
    {"HANG_SAVE", &m_hang_save_flag},
    {"HANG_PATH", m_hang_path, m_sz_debug_path},
    {"RESULT_CHECK", &m_result_check},
    {"RESULT_TIME", m_result_check_time},
    {"SEND_EMAIL_CHECK", &m_send_email_used},
    {"SMTP_SERVER_URL", m_stmp_server_url},
    {"SMTP_SERVER_PORT", m_smtp_server_port},
    {"SMTP_CONNECTION_SECURITY", &m_stmp_connection_security},
    {"SMTP_FLAGS", &m_stmp_flags},
    {"SMTP_AUTH", &m_stmp_auth},
    {"SMTP_AUTHID", m_stmp_auth_id},
    {"SMTP_AUTHPASSWORD", m_stmp_auth_password},
    {"SENDER_NAME", m_send_name},
    {"SENDER_EMAIL", m_send_email},
    {"RECEIVER_FILE", m_receiver_email, m_sz_base_path},
    {"REFERENCE_FILE", m_reference_email, m_sz_base_path},
    {"BLIND_FILE", m_blind_email, m_sz_base_path},
    {"LOG_CHECK_MIN", &m_errorlog_period},
    {"SEND_WEBHOOK_CHECK", &m_send_webhook_used},
    {"WEBHOOK_APPS", &m_webhook_apps},
    {"WEBHOOK_SERVER_URL", m_webhook_server_url},
};

void AddServer(const std::string& value, int64_t* count) {
  if (*count >= MAX_SERVERS) return;
  SVC_SERVER& server = gSendInfo->servers[*count];
  const size_t colon = value.find(':');
  base::CopyText(server.address, sizeof server.address, value.substr(0, colon));
  server.port = colon == std::string::npos ? 0 : std::atol(value.c_str() + colon + 1);
  server.index = *count;
  gSendInfo->server_count = ++*count;
}

void Store(const Key& key, const std::string& value) {
  if (key.text != nullptr) {
    base::CopyText(key.text, static_cast<size_t>(key.size), value);
  } else if (key.number != nullptr) {
    *key.number = std::atol(value.c_str());
  } else {
    gSendInfo->*key.threshold = std::atol(value.c_str());
  }
}

void ReadLines(FILE* file) {
  ConfigLine parser;
  int64_t servers = 0;
  char line[LINE_SIZE];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    if (!parser.Take(line)) continue;
    const auto* key = std::find_if(std::begin(KEYS), std::end(KEYS),
                                   [&](const Key& row) { return parser.Key() == row.name; });
    if (key != std::end(KEYS)) {
      Store(*key, parser.Value());
    } else if (parser.Key().starts_with(SERVER_PREFIX)) {
      AddServer(parser.Value(), &servers);
    }
  }
}

}  // namespace

int ReadCfg() {
  std::fill(std::begin(gSendInfo->servers), std::end(gSendInfo->servers), SVC_SERVER{});
  const std::string name = ConfigFileName(m_sz_configfile);
  const base::UniqueFile file(std::fopen(name.c_str(), "rbe"));
  if (!file) return -1;
  ReadLines(file.get());
  for (const Key& key : KEYS) {
    if (key.base != nullptr) FullPath(key.base, key.text, key.size);
  }
  base::CopyText(g_szDebugMsg, sizeof g_szDebugMsg,
                 base::Format("ReadCfg : PROC_NAME( %s ), PROC_FIlE( %s )", m_sz_proc_name, m_sz_proc_file));
  return 1;
}

int FullPath(const char* base, char* path, int size) {
  if (*path == '/') return 1;
  std::string work = base;
  const bool relative = *path == '.';
  if (relative) {
    RemoveFirst(path);
    RemoveFirst(path);
    work += path;
  }
  work.resize(std::min(work.size(), PATH_WORK_SIZE - 1));
  base::CopyText(path, static_cast<size_t>(size), work);
  return relative ? 1 : -1;
}

void RemoveFirst(char* text) {
  if (*text != '\0') std::memmove(text, text + 1, std::strlen(text));
}
