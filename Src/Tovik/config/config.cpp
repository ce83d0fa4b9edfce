#include "Tovik/config/config.h"

#include <algorithm>
#include <cstdio>
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

constexpr int CONFIG_PIECE_SIZE = 1024;
constexpr size_t FULL_CONFIG_PATH = 8192;

#define CONFIG_TEXT(key, variable, room) {.name = (key), .text = (variable), .size = CONFIG_##room},
#define CONFIG_PATH(key, variable, room, from) \
  {.name = (key), .text = (variable), .size = CONFIG_##room, .base = (from)},
#define CONFIG_URL(key, variable, room, takes) \
  {.name = (key), .text = (variable), .size = CONFIG_##room, .usable = (takes)},
#define CONFIG_NUMBER(key, variable) {.name = (key), .number = &(variable)},
#define CONFIG_OPTION(key, variable, limit) {.name = (key), .number = &(variable), .most = (limit)},
#define CONFIG_THRESHOLD(key, field) {.name = (key), .threshold = &SEND_INFO::field},
constexpr ConfigKey CONFIG_KEYS[] = {
#include "Tovik/config/config_keys.inc"
};

void AddConfigServer(const std::string& configValue, int64_t* configServers) {
  if (*configServers >= MAX_SERVERS) return;
  SVC_SERVER& configServer = gSendInfo->servers[*configServers];
  const size_t serverColon = configValue.find(':');
  base::CopyText(configServer.address, sizeof configServer.address, configValue.substr(0, serverColon));
  configServer.port =
      serverColon == std::string::npos ? 0 : base::LeadingNumber(configValue.c_str() + serverColon + 1);
  configServer.index = *configServers;
  gSendInfo->server_count = ++*configServers;
}

// Keys and values of rejected options. They are traced later, because the log is not open yet.
std::vector<std::pair<std::string, std::string>> badConfigValues;

void StoreConfigOption(const ConfigKey& configKey, const std::string& configValue) {
  const std::optional<int64_t> configOption = OptionValue(configValue, configKey.most);
  *configKey.number = configOption.value_or(0);
  if (!configOption) badConfigValues.emplace_back(configKey.name, configValue);
}

void StoreConfigText(const ConfigKey& configKey, const std::string& configValue) {
  const bool configTextRefused = configKey.usable != nullptr && !configKey.usable(configValue);
  base::CopyText(configKey.text, static_cast<size_t>(configKey.size),
                 configTextRefused ? std::string() : configValue);
  // Before a "@" may stand a password.
  if (configTextRefused)
    badConfigValues.emplace_back(configKey.name,
                                 configValue.find('@') == std::string::npos ? configValue : "***");
}

void StoreConfigValue(const ConfigKey& configKey, const std::string& configValue) {
  if (configKey.text != nullptr) {
    StoreConfigText(configKey, configValue);
  } else if (configKey.most != ConfigKey::NO_LIMIT) {
    StoreConfigOption(configKey, configValue);
  } else if (configKey.number != nullptr) {
    *configKey.number = base::LeadingNumber(configValue);
  } else {
    gSendInfo->*configKey.threshold = base::LeadingNumber(configValue);
  }
}

// A key of the file and its value. An unknown key is ignored.
void StoreNamedValue(const std::string& keyName, const std::string& configValue, int64_t* configServers) {
  const auto* configKey = std::find_if(std::begin(CONFIG_KEYS), std::end(CONFIG_KEYS),
                                       [&](const ConfigKey& row) { return keyName == row.name; });
  if (configKey != std::end(CONFIG_KEYS)) {
    StoreConfigValue(*configKey, configValue);
  } else if (keyName.starts_with(CONFIG_SERVER_PREFIX)) {
    AddConfigServer(configValue, configServers);
  }
}

void StoreConfigFile(FILE* configFile) {
  int64_t configServers = 0;
  ConfigLine configLine;
  char configPiece[CONFIG_PIECE_SIZE];
  while (std::fgets(configPiece, sizeof configPiece, configFile) != nullptr) {
    if (configLine.Take(configPiece)) {
      StoreNamedValue(configLine.Key(), configLine.Value(), &configServers);
    }
  }
}

}  // namespace

std::span<const ConfigKey> ConfigKeys() {
  return CONFIG_KEYS;
}

std::string ConfigFileName(const std::string& configName) {
  std::string configFileName;
  bool configNameTaken = false;
  for (size_t i = 0; i < configName.size(); ++i) {
    const char nextOfConfigName =
        configName[i] == '%' && i + 1 < configName.size() ? configName[i + 1] : '\0';
    if (nextOfConfigName == '%') {
      configFileName += '%';
      ++i;
    } else if (nextOfConfigName == 's' && !configNameTaken) {
      configFileName += configName;
      configNameTaken = true;
      ++i;
    } else {
      configFileName += configName[i];
    }
  }
  return configFileName;
}

int ReadCfg() {
  std::fill(std::begin(gSendInfo->servers), std::end(gSendInfo->servers), SVC_SERVER{});
  const std::string configFileName = ConfigFileName(m_sz_configfile);
  const base::UniqueFile configFile(std::fopen(configFileName.c_str(), "rbe"));
  if (!configFile) return -1;
  badConfigValues.clear();
  StoreConfigFile(configFile.get());
  for (const ConfigKey& configKey : CONFIG_KEYS) {
    if (configKey.base != nullptr) FullPath(configKey.base, configKey.text, configKey.size);
  }
  base::CopyText(g_szDebugMsg, sizeof g_szDebugMsg,
                 base::Format("ReadCfg : PROC_NAME( %s ), PROC_FIlE( %s )", m_sz_proc_name, m_sz_proc_file));
  return 1;
}

void TraceBadOptions() {
  for (const auto& [configKey, configValue] : badConfigValues) {
    TRACE(TRACE_WARN, "%s: \"%s\" is no value for it and counts as absent", configKey.c_str(),
          configValue.c_str());
  }
}

std::optional<int64_t> OptionValue(const std::string& configValue, int64_t mostOption) {
  const bool onlyDigits =
      !configValue.empty() && configValue.find_first_not_of("0123456789") == std::string::npos;
  const int64_t configNumber = base::LeadingNumber(configValue);
  return onlyDigits && configNumber <= mostOption ? std::optional(configNumber) : std::nullopt;
}

int FullPath(const char* basePath, char* configPath, int configPathSize) {
  if (*configPath == '/') return 1;
  std::string fullConfigPath = basePath;
  const bool relativeConfigPath = *configPath == '.';
  if (relativeConfigPath) {
    RemoveFirst(configPath);
    RemoveFirst(configPath);
    fullConfigPath += configPath;
  }
  fullConfigPath.resize(std::min(fullConfigPath.size(), FULL_CONFIG_PATH - 1));
  base::CopyText(configPath, static_cast<size_t>(configPathSize), fullConfigPath);
  return relativeConfigPath ? 1 : -1;
}

void RemoveFirst(char* configText) {
  if (*configText != '\0') std::memmove(configText, configText + 1, std::strlen(configText));
}
