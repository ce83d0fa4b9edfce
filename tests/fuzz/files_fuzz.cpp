// The files that others write: the configuration, the recipients, and the engine's results.
#include <array>
#include <climits>
#include <cmath>
#include <memory>
#include <sstream>
#include <vector>

#include "Tovik/alarms/recipient_line.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/checks/average_table.h"
#include "Tovik/checks/result_file.h"
#include "Tovik/config/config.h"
#include "Tovik/config/config_line.h"
#include "Tovik/notices/notices.h"
#include "base/format.h"
#include "base/regular_file.h"
#include "charset/utf8_repair.h"
#include "fuzz/fuzz.h"
#include "smtp/smtp_status.h"

// The configuration, and the expansion of its name and of the paths in it.
void fuzz_config(const std::string& text) {
  static SEND_INFO info;
  gSendInfo = &info;
  info.server_count = 0;
  const fuzz::MemoryFile file(text);
  base::CopyText(m_sz_configfile, sizeof m_sz_configfile, file.path);
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

// Two words for each line, cut to their limit, checked against a stream; and the lines, of which the mail
// client takes each that passes.
void fuzz_recipients(const std::string& text) {
  const fuzz::MemoryFile file(text);
  const std::string counted = text.substr(0, text.find('\xFF'));
  const int64_t count = GetTotalLine(file.path.c_str());
  HOLDS(count == std::count(counted.begin(), counted.end(), '\n'));
  std::shared_ptr<const EMAIL_ENTRIES> entries;
  fuzz::Quickly(text, [&] { entries = GetMailInfo(file.path.c_str(), count); });
  std::istringstream in(text);
  const auto next = [&] {
    std::string word;
    in >> word;
    // The list's texts end at a NUL.
    return std::string(word.substr(0, EMAIL_WORD).c_str());
  };
  for (int64_t i = 0; i < count; ++i) {
    HOLDS(entries->At(i).name == next());
    HOLDS(entries->At(i).address == next());
  }
  HOLDS(*entries->At(count).name == '\0' && *entries->At(-1).address == '\0');
  alarms::BadRecipientLines bad;
  bad.AddWordLines(text);
  const std::string shown = notices::Shown(bad.Words() + text);
  HOLDS(shown.size() <= 300 && charset::Repaired(shown) == shown);
  HOLDS(std::none_of(shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }));
  std::istringstream lines(text);
  smtp_session session;
  for (std::string line; std::getline(lines, line);) {
    const alarms::RecipientLine parsed = alarms::ParseRecipient(line);
    HOLDS(parsed.fault != nullptr || smtp_address_add(&session, SMTP_ADDRESS_TO, parsed.address.c_str(),
                                                      parsed.name.c_str()) == SMTP_SUCCESS);
  }
}

namespace {

void CheckRecord(const RESULT_LIST& record, std::string line) {
  std::array<std::string, 23> fields;
  std::array<char, RESULT_LINE> field{};
  char* next = line.data();
  for (size_t i = 1; i < fields.size(); ++i) {
    next = GetNextString(next, ',', field.data());
    HOLDS(next <= line.data() + line.size());
    fields[i] = field.data();
  }
  for (const auto& [got, text] :
       {std::pair(record.recognition_time, &fields[13]), {record.response_time, &fields[22]}}) {
    HOLDS(got == std::clamp<int64_t>(std::strtol(text->c_str(), nullptr, 10), INT_MIN, INT_MAX));
  }
  for (const auto& [got, text] : {std::pair(record.file_time, &fields[16]), {record.xrt, &fields[19]}}) {
    const auto expected = static_cast<float>(std::strtod(text->c_str(), nullptr));
    HOLDS(got == expected || (std::isnan(got) && std::isnan(expected)));
  }
}

}  // namespace

// The results, checked against fgets, strtol and strtod.
void fuzz_result(const std::string& text) {
  const fuzz::MemoryFile file(text);
  std::vector<std::string> lines;
  char buffer[RESULT_LINE];
  const base::UniqueFile stream(std::fopen(file.path.c_str(), "re"));
  while (std::fgets(buffer, sizeof buffer, stream.get()) != nullptr) lines.emplace_back(buffer);

  const auto count = int64_t(lines.size());
  std::unique_ptr<RESULT_LIST, void (*)(RESULT_LIST*)> records(nullptr, FreeResultData);
  fuzz::Quickly(text, [&] { records.reset(GetResultReadData(file.path.c_str(), count)); });
  HOLDS(records != nullptr);
  for (size_t i = 0; i < lines.size(); ++i) CheckRecord(records.get()[i], lines[i]);
  if (count == 0) return;
  char table[AVERAGE_TABLE_SIZE];
  FormatAverageTable("2024/01/01", count, AverageOf(records.get(), count), table);
  HOLDS(std::memchr(table, 0, sizeof table) != nullptr && std::strpbrk(table, "\"\\\r\n") == nullptr);
  HOLDS(std::strstr(table, "</table>") != nullptr);
}
