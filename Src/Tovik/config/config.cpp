#include "Tovik/config/config.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "Tovik/config/config_line.h"
#include "Tovik/config/url.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/number.h"
#include "base/unique_handles.h"

char m_sz_configfile[CONFIG_LONG];

#define CONFIG_TEXT(key, variable, size) char variable[CONFIG_##size];
#define CONFIG_PATH(key, variable, size, base) char variable[CONFIG_##size];
#define CONFIG_URL(key, variable, size, usable) char variable[CONFIG_##size];
#define CONFIG_NUMBER(key, variable) int64_t variable;
#define CONFIG_OPTION(key, variable, most) int64_t variable;
#define CONFIG_THRESHOLD(key, field)
#include "Tovik/config/config_keys.inc"
#undef CONFIG_TEXT
#undef CONFIG_PATH
#undef CONFIG_URL
#undef CONFIG_NUMBER
#undef CONFIG_OPTION
#undef CONFIG_THRESHOLD

char g_szDebugMsg[512];
SEND_INFO* gSendInfo;

namespace {

constexpr int CONFIG_LINE_SIZE = 1024;
constexpr size_t FULL_PATH_SIZE = 8192;

#define CONFIG_TEXT(key, variable, room) {.name = key, .text = variable, .size = CONFIG_##room},
#define CONFIG_PATH(key, variable, room, from) \
  {.name = key, .text = variable, .size = CONFIG_##room, .base = from},
#define CONFIG_URL(key, variable, room, takes) \
  {.name = key, .text = variable, .size = CONFIG_##room, .usable = takes},
#define CONFIG_NUMBER(key, variable) {.name = key, .number = &(variable)},
#define CONFIG_OPTION(key, variable, limit) {.name = key, .number = &(variable), .most = limit},
#define CONFIG_THRESHOLD(key, field) {.name = key, .threshold = &SEND_INFO::field},
constexpr ConfigKey CONFIG_KEYS[] = {
#include "Tovik/config/config_keys.inc"
};

void AddServer(const std::string& value, int64_t* serverCount) {
  if (*serverCount >= MAX_SERVERS) return;
  SVC_SERVER& server = gSendInfo->servers[*serverCount];
  const size_t colon = value.find(':');
  base::CopyText(server.address, sizeof server.address, value.substr(0, colon));
  server.port = colon == std::string::npos ? 0 : base::LeadingNumber(value.c_str() + colon + 1);
  server.index = *serverCount;
  gSendInfo->server_count = ++*serverCount;
}

// Keys and values of rejected options. They are traced later, because the log is not open yet.
std::vector<std::pair<std::string, std::string>> badSettings;

void StoreOption(const ConfigKey& key, const std::string& value) {
  const std::optional<int64_t> option = OptionValue(value, key.most);
  *key.number = option.value_or(0);
  if (!option) badSettings.emplace_back(key.name, value);
}

void StoreText(const ConfigKey& key, const std::string& value) {
  const bool refused = key.usable != nullptr && !key.usable(value);
  base::CopyText(key.text, static_cast<size_t>(key.size), refused ? std::string() : value);
  // Before a "@" may stand a password.
  if (refused) badSettings.emplace_back(key.name, value.find('@') == std::string::npos ? value : "***");
}

void StoreSetting(const ConfigKey& key, const std::string& value) {
  if (key.text != nullptr) {
    StoreText(key, value);
  } else if (key.most != ConfigKey::NO_LIMIT) {
    StoreOption(key, value);
  } else if (key.number != nullptr) {
    *key.number = base::LeadingNumber(value);
  } else {
    gSendInfo->*key.threshold = base::LeadingNumber(value);
  }
}

void StoreSettings(FILE* configFile) {
  int64_t serverCount = 0;
  ReadSettings(configFile, [&serverCount](const std::string& name, const std::string& value) {
    const auto* key = std::find_if(std::begin(CONFIG_KEYS), std::end(CONFIG_KEYS),
                                   [&](const ConfigKey& row) { return name == row.name; });
    if (key != std::end(CONFIG_KEYS)) {
      StoreSetting(*key, value);
    } else if (name.starts_with(CONFIG_SERVER_PREFIX)) {
      AddServer(value, &serverCount);
    }
  });
}

}  // namespace

std::span<const ConfigKey> ConfigKeys() {
  return CONFIG_KEYS;
}

void ReadSettings(FILE* configFile, const TakeSetting& take) {
  ConfigLine configLine;
  char line[CONFIG_LINE_SIZE];
  while (std::fgets(line, sizeof line, configFile) != nullptr) {
    if (configLine.Take(line)) take(configLine.Key(), configLine.Value());
  }
}

int ReadCfg() {
  std::fill(std::begin(gSendInfo->servers), std::end(gSendInfo->servers), SVC_SERVER{});
  const std::string configFileName = ConfigFileName(m_sz_configfile);
  const base::UniqueFile configFile(std::fopen(configFileName.c_str(), "rbe"));
  if (!configFile) return -1;
  badSettings.clear();
  StoreSettings(configFile.get());
  for (const ConfigKey& key : CONFIG_KEYS) {
    if (key.base != nullptr) FullPath(key.base, key.text, key.size);
  }
  base::CopyText(g_szDebugMsg, sizeof g_szDebugMsg,
                 base::Format("ReadCfg : PROC_NAME( %s ), PROC_FIlE( %s )", m_sz_proc_name, m_sz_proc_file));
  return 1;
}

void TraceBadOptions() {
  for (const auto& [key, value] : badSettings) {
    TRACE(TRACE_WARN, "%s: \"%s\" is no value for it and counts as absent", key.c_str(), value.c_str());
  }
}

std::optional<int64_t> OptionValue(const std::string& value, int64_t most) {
  const bool onlyDigits = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
  const int64_t option = base::LeadingNumber(value);
  return onlyDigits && option <= most ? std::optional(option) : std::nullopt;
}

int FullPath(const char* base, char* path, int size) {
  if (*path == '/') return 1;
  std::string fullPath = base;
  const bool relative = *path == '.';
  if (relative) {
    RemoveFirst(path);
    RemoveFirst(path);
    fullPath += path;
  }
  fullPath.resize(std::min(fullPath.size(), FULL_PATH_SIZE - 1));
  base::CopyText(path, static_cast<size_t>(size), fullPath);
  return relative ? 1 : -1;
}

void RemoveFirst(char* text) {
  if (*text != '\0') std::memmove(text, text + 1, std::strlen(text));
}
