// The engine's result file, checked against fgets, strtol and strtod.
#include <array>
#include <climits>
#include <cmath>
#include <memory>
#include <vector>

#include "Tovik/checks/result_file.h"
#include "Tovik/checks/result_table.h"
#include "fuzz/fuzz.h"

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

FUZZ_TARGET(text) {
  const fuzz::MemoryFile file(text);
  std::vector<std::string> lines;
  char buffer[RESULT_LINE];
  const base::UniqueFile stream(std::fopen(file.Path(), "re"));
  while (std::fgets(buffer, sizeof buffer, stream.get()) != nullptr) lines.emplace_back(buffer);

  const auto count = int64_t(lines.size());
  std::unique_ptr<RESULT_LIST, void (*)(RESULT_LIST*)> owner(nullptr, FreeResultData);
  fuzz::Quickly(text, [&] { owner.reset(GetResultReadData(file.Path(), count)); });
  const RESULT_LIST* const records = owner.get();
  HOLDS(records != nullptr);
  for (size_t i = 0; i < lines.size(); ++i) CheckRecord(records[i], lines[i]);
  if (count == 0) return;
  char table[RESULT_TABLE];
  FormatResultTable("2024/01/01", count, AverageOf(records, count), table);
  HOLDS(std::memchr(table, 0, sizeof table) != nullptr && std::strpbrk(table, "\"\\\r\n") == nullptr);
  HOLDS(std::strstr(table, "</table>") != nullptr);
}
