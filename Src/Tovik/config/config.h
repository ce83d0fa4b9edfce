// The agent's configuration: one variable per key, set once at start-up and then only read, by any thread.
// Texts are in code page 949. A text is empty and a number 0 unless its key is set; there are no other
// defaults. config_keys.inc lists the keys and their variables.
#ifndef TOVIK_CONFIG_CONFIG_H
#define TOVIK_CONFIG_CONFIG_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

inline constexpr int CONFIG_SHORT = 1024;
inline constexpr int CONFIG_LONG = 4096;
inline constexpr int MAX_SERVERS = 100;

extern char m_sz_configfile[CONFIG_LONG];  // path of the configuration file, from the command line

// NOLINTBEGIN(bugprone-macro-parentheses): a declarator has none
#define CONFIG_TEXT(key, variable, size) extern char variable[CONFIG_##size];
#define CONFIG_PATH(key, variable, size, base) extern char variable[CONFIG_##size];
#define CONFIG_URL(key, variable, size, usable) extern char variable[CONFIG_##size];
// NOLINTEND(bugprone-macro-parentheses)
#define CONFIG_NUMBER(key, variable) extern int64_t variable;
#define CONFIG_OPTION(key, variable, most) extern int64_t variable;
#define CONFIG_THRESHOLD(key, field)
#include "Tovik/config/config_keys.inc"
#undef CONFIG_TEXT
#undef CONFIG_PATH
#undef CONFIG_URL
#undef CONFIG_NUMBER
#undef CONFIG_OPTION
#undef CONFIG_THRESHOLD

// The last message of ReadCfg, for use in a debugger.
extern char g_szDebugMsg[512];

// One management server.
struct SVC_SERVER {
  char address[256];  // dotted IPv4 address as configured
  int64_t port;
  int64_t index;  // position in the table, also the trace channel of its reports
};

struct SEND_INFO {
  SVC_SERVER servers[MAX_SERVERS];
  int64_t server_count;
  int64_t cpu_over_value;  // percent
  int64_t mem_over_value;  // percent
  int64_t ch_over_value;   // percent
};

// Allocated at start-up before the configuration is read. The stop frees it when its readers have ended.
extern SEND_INFO* gSendInfo;

// One key of the file and the place for its value: a text (for a path also its base), a number, or a
// threshold in *gSendInfo. Members that do not apply are null.
struct ConfigKey {
  const char* name;
  char* text = nullptr;
  int size = 0;                                        // of the text's buffer
  const char* base = nullptr;                          // of a path
  bool (*usable)(const std::string& value) = nullptr;  // of a text: what it refuses counts as absent
  int64_t* number = nullptr;
  int64_t most = NO_LIMIT;  // for an option: the largest value; anything but 0..most counts as 0
  int64_t SEND_INFO::*threshold = nullptr;

  static constexpr int64_t NO_LIMIT = -1;
};
// All keys except those of the servers, which only share a prefix.
std::span<const ConfigKey> ConfigKeys();
// The prefix of the key of each management server.
inline constexpr const char* CONFIG_SERVER_PREFIX = "ALARM_";

// Reads m_sz_configfile into the variables above and *gSendInfo. Returns 1, or -1 when the file cannot be
// opened.
//
// A line holds a key, blanks or tabs, and the value. Lines that begin with ";", ":" or "/" are comments;
// unknown keys are ignored. Lines are read in pieces of at most 1,023 bytes, and each piece counts as a line.
// In the name of the file "%s" stands for the name itself and "%%" for a percent sign.
[[nodiscard]] int ReadCfg();

// Expands the name of the configuration file: the first "%s" becomes the name itself, "%%" a percent sign.
// Everything else stays.
std::string ConfigFileName(const std::string& configName);

// Traces the options whose values the last ReadCfg rejected. They count as absent.
void TraceBadOptions();

// Returns the number of an option's value; nothing unless it consists of digits and is at most mostOption.
std::optional<int64_t> OptionValue(const std::string& configValue, int64_t mostOption);

// Makes configPath absolute in place, within so many bytes. "/..." stays. In "./..." basePath replaces the
// first two characters. Anything else is replaced by basePath as a whole. Returns 1, or -1 in the last case.
int FullPath(const char* basePath, char* configPath, int configPathSize);

// Removes the first character of a text in place, if there is one.
void RemoveFirst(char* configText);

#endif
