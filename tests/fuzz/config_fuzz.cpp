// The configuration file, and the expansion of its name and of the paths in it.
#include "Tovik/config/config.h"
#include "Tovik/config/config_line.h"
#include "base/format.h"
#include "fuzz/fuzz.h"

FUZZ_TARGET(text) {
  static SEND_INFO info;
  gSendInfo = &info;
  info.server_count = 0;
  const fuzz::MemoryFile file(text);
  base::CopyText(m_sz_configfile, sizeof m_sz_configfile, file.Path());
  fuzz::Quickly(text, [] { HOLDS(ReadCfg() == 1); });
  HOLDS(std::memchr(m_sz_proc_name, 0, sizeof m_sz_proc_name) != nullptr);
  HOLDS(std::memchr(m_sz_shell_file, 0, sizeof m_sz_shell_file) != nullptr);
  HOLDS(info.server_count >= 0 && info.server_count <= MAX_SERVERS);
  for (int64_t i = 0; i < info.server_count; ++i) {
    const SVC_SERVER& server = info.servers[i];
    HOLDS(server.index == i && std::memchr(server.address, 0, sizeof server.address) != nullptr);
  }

  char path[CONFIG_SHORT];
  base::CopyText(path, sizeof path, text.c_str());
  const bool fixed = *path == '/' || *path == '.';
  HOLDS(FullPath("/base/", path, sizeof path) == (fixed ? 1 : -1));
  HOLDS(*path == '/' && std::memchr(path, 0, sizeof path) != nullptr);
  HOLDS(ConfigFileName(text).size() <= text.size() * 2);
  std::string value = text;
  TrimValue(&value);
  HOLDS(text.starts_with(value) && value.empty() == text.empty());
}
