// The configuration file, and the expansions of its name and of its paths.
#include <cstring>

#include "Tovik/core/config.h"
#include "Tovik/core/config_line.h"
#include "base/format.h"
#include "fuzz/fuzz.h"

namespace {

void CheckTexts() {
  HOLDS(std::memchr(m_sz_proc_name, 0, sizeof m_sz_proc_name) != nullptr);
  HOLDS(std::memchr(m_sz_shell_file, 0, sizeof m_sz_shell_file) != nullptr);
  HOLDS(std::memchr(m_sz_svc_txt_path, 0, sizeof m_sz_svc_txt_path) != nullptr);
  HOLDS(gSendInfo->server_count >= 0 && gSendInfo->server_count <= MAX_SERVERS);
  for (int64_t i = 0; i < gSendInfo->server_count; ++i) {
    const SVC_SERVER& server = gSendInfo->servers[i];
    HOLDS(server.index == i && std::memchr(server.address, 0, sizeof server.address) != nullptr);
  }
}

void CheckPath(const std::string& text) {
  char path[CONFIG_TEXT];
  base::CopyText(path, sizeof path, text);
  const bool fixed = *path == '/' || *path == '.';
  HOLDS(FullPath("/base/", path, sizeof path) == (fixed ? 1 : -1));
  HOLDS(*path == '/' && std::memchr(path, 0, sizeof path) != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::Text(data, size);
  static SEND_INFO info;
  gSendInfo = &info;
  info.server_count = 0;
  const fuzz::MemoryFile file(text);
  base::CopyText(m_sz_configfile, sizeof m_sz_configfile, file.Path());
  fuzz::Quickly(text, [] { HOLDS(ReadCfg() == 1); });
  CheckTexts();
  CheckPath(text.c_str());
  HOLDS(ConfigFileName(text).size() <= text.size() * 2);

  std::string value = text;
  TrimValue(&value);
  HOLDS(value.size() <= text.size() && text.starts_with(value) && value.empty() == text.empty());
  return 0;
}
