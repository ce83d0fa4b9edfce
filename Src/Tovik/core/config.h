// The agent's configuration: one variable per key, filled once at start-up and read-only from then on, so
// that every thread may read it. Texts are in code page 949; each starts empty and each number 0: no key has
// another default.
#ifndef TOVIK_CORE_CONFIG_H
#define TOVIK_CORE_CONFIG_H

#include <cstdint>

inline constexpr int CONFIG_TEXT = 1024;
inline constexpr int CONFIG_LONG_TEXT = 4096;
inline constexpr int MAX_SERVERS = 100;

extern char m_sz_configfile[CONFIG_LONG_TEXT];  // the file itself, from the command line

extern char m_sz_proc_name[CONFIG_TEXT];
extern char m_sz_watchdog_name[CONFIG_TEXT];
extern char m_sz_base_path[CONFIG_TEXT];
extern char m_sz_debug_path[CONFIG_TEXT];
extern char m_sz_recg_path[CONFIG_TEXT];
extern int64_t m_PROC_PORT;
extern char m_sz_proc_file[CONFIG_TEXT];
extern char m_sz_shell_file[CONFIG_TEXT];
extern char m_sz_shell_method[CONFIG_TEXT];
extern char m_sz_cfg_file[CONFIG_TEXT];
extern char m_sz_svc_pid_file[CONFIG_TEXT];
extern char m_sz_touch_file[CONFIG_TEXT];
extern char m_sz_adm_pid_file[CONFIG_TEXT];
extern int64_t m_ssl_check;
extern char m_sz_cert_file[CONFIG_TEXT];
extern char m_sz_key_file[CONFIG_TEXT];
extern char m_sz_ca_file[CONFIG_TEXT];
extern char m_sz_ssl_password[CONFIG_TEXT];
extern int64_t m_restart_check;
extern int64_t m_restart_period;  // seconds
extern int64_t m_First_Alarm_Flag;
extern int64_t m_txt_save;
extern char m_sz_txt_path[CONFIG_TEXT];
extern char m_sz_svc_txt_path[CONFIG_LONG_TEXT];
extern int64_t m_log_level;
extern int64_t m_log_hostname_inc_flag;
extern int64_t m_Hang_Time;  // seconds
extern int64_t m_hang_save_flag;
extern char m_hang_path[CONFIG_TEXT];
extern int64_t m_result_check;
extern char m_result_check_time[CONFIG_LONG_TEXT];
extern int64_t m_send_email_used;
extern char m_stmp_server_url[CONFIG_LONG_TEXT];
extern char m_smtp_server_port[CONFIG_LONG_TEXT];
extern int64_t m_stmp_connection_security;
extern int64_t m_stmp_flags;
extern int64_t m_stmp_auth;
extern char m_stmp_auth_id[CONFIG_LONG_TEXT];
extern char m_stmp_auth_password[CONFIG_LONG_TEXT];
extern char m_send_name[CONFIG_LONG_TEXT];
extern char m_send_email[CONFIG_LONG_TEXT];
extern char m_receiver_email[CONFIG_LONG_TEXT];
extern char m_reference_email[CONFIG_LONG_TEXT];
extern char m_blind_email[CONFIG_LONG_TEXT];
extern int64_t m_errorlog_period;  // minutes
extern int64_t m_send_webhook_used;
extern int64_t m_webhook_apps;
extern char m_webhook_server_url[CONFIG_LONG_TEXT];

// What ReadCfg said last; kept for a debugger.
extern char g_szDebugMsg[512];

// One management server.
struct SVC_SERVER {
  char address[256];  // dotted IPv4 address, as configured
  int64_t port;
  int64_t index;  // ordinal in the table, also the trace channel of its reports
};

struct SEND_INFO {
  SVC_SERVER servers[MAX_SERVERS];
  int64_t server_count;
  int64_t cpu_over_value;  // percent
  int64_t mem_over_value;  // percent
  int64_t ch_over_value;   // percent
};

// Allocated at start-up before the configuration is read, freed by the stop once its readers have ended.
extern SEND_INFO* gSendInfo;

// Reads m_sz_configfile into the variables above and *gSendInfo. 1, or -1 when the file cannot be opened.
//
// A line holds a key, blanks or tabs, and the value; lines that begin with ";", ":" or "/" are comments and
// unknown keys are ignored. Lines are read in pieces of at most 1,023 bytes, each piece a line of its own.
// "%s" in the file's name stands for the name itself and "%%" for a percent sign.
int ReadCfg();

// Makes path absolute against base, in place, within size bytes: "/..." stays; of "./..." the first two
// characters give way to base; anything else becomes base itself. 1, or -1 in that last case.
int FullPath(const char* base, char* path, int size);

// Drops the first character of a text in place; an empty one stays.
void RemoveFirst(char* text);

#endif
