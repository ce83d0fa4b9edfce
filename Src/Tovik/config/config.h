// The agent's configuration: one variable per key, filled once at start-up and read-only from then on, so
// that every thread may read it. Texts are in code page 949; each starts empty and each number 0: no key has
// another default. The keys and their variables are listed in config_keys.inc.
#ifndef TOVIK_CONFIG_CONFIG_H
#define TOVIK_CONFIG_CONFIG_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <string>

inline constexpr int CONFIG_SHORT = 1024;
inline constexpr int CONFIG_LONG = 4096;
inline constexpr int MAX_SERVERS = 100;

extern char m_sz_configfile[CONFIG_LONG];  // the file itself, from the command line

#define CONFIG_TEXT(key, variable, size) extern char variable[CONFIG_##size];
#define CONFIG_PATH(key, variable, size, base) extern char variable[CONFIG_##size];
#define CONFIG_NUMBER(key, variable) extern int64_t variable;
#define CONFIG_OPTION(key, variable, most) extern int64_t variable;
#define CONFIG_THRESHOLD(key, field)
#include "Tovik/config/config_keys.inc"
#undef CONFIG_TEXT
#undef CONFIG_PATH
#undef CONFIG_NUMBER
#undef CONFIG_OPTION
#undef CONFIG_THRESHOLD

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

// One key of the file and where its value goes: a text (for a path with the base it is taken from), a number,
// or a threshold of *gSendInfo. The members that do not apply are null.
struct ConfigKey {
  const char* name;
  char* text = nullptr;
  int size = 0;                // of the text's buffer
  const char* base = nullptr;  // of a path
  int64_t* number = nullptr;
  int64_t most = NO_LIMIT;  // of an option: a number from 0 to this, anything else counts as 0
  int64_t SEND_INFO::*threshold = nullptr;

  static constexpr int64_t NO_LIMIT = -1;
};
// All keys but the servers', whose names only begin alike.
std::span<const ConfigKey> ConfigKeys();
// How the key of every management server begins.
inline constexpr const char* CONFIG_SERVER_PREFIX = "ALARM_";

// Reads m_sz_configfile into the variables above and *gSendInfo. 1, or -1 when the file cannot be opened.
//
// A line holds a key, blanks or tabs, and the value; lines that begin with ";", ":" or "/" are comments and
// unknown keys are ignored. Lines are read in pieces of at most 1,023 bytes, each piece a line of its own.
// "%s" in the file's name stands for the name itself and "%%" for a percent sign.
[[nodiscard]] int ReadCfg();

// Traces the options of the last ReadCfg whose value counts as absent.
void TraceBadOptions();

// The number of an option's value; none unless it is digits alone and at most `most`.
std::optional<int64_t> OptionValue(const std::string& value, int64_t most);

// The reading alone: takes each piece that has a key, in the file's order, with the value as ReadCfg stores
// it.
using TakeSetting = std::function<void(const std::string& key, const std::string& value)>;
void ReadSettings(FILE* file, const TakeSetting& take);

// Makes path absolute against base, in place, within size bytes: "/..." stays; of "./..." the first two
// characters give way to base; anything else becomes base itself. 1, or -1 in that last case.
int FullPath(const char* base, char* path, int size);

// Drops the first character of a text in place; an empty one stays.
void RemoveFirst(char* text);

#endif
