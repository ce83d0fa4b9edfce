// The engine's result file, against fgets, strtol and strtod.
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "Tovik/checks/result_reader.h"
#include "Tovik/checks/result_table.h"
#include "fuzz/fuzz.h"

namespace {

constexpr size_t FIELDS = 22;

std::array<std::string, FIELDS + 1> Fields(std::string line) {
  std::array<std::string, FIELDS + 1> fields;
  std::array<char, RESULT_LINE> field{};
  char* next = line.data();
  for (size_t i = 1; i <= FIELDS; ++i) {
    next = GetNextString(next, ',', field.data());
    HOLDS(next <= line.data() + line.size());
    fields[i] = field.data();
  }
  return fields;
}

int64_t Integer(const std::string& text) {
  return std::clamp<int64_t>(std::strtol(text.c_str(), nullptr, 10), INT_MIN, INT_MAX);
}

bool SameFloat(float got, const std::string& text) {
  const auto expected = static_cast<float>(std::strtod(text.c_str(), nullptr));
  return got == expected || (std::isnan(got) && std::isnan(expected));
}

void CheckRecord(const RESULT_LIST& record, const char* line) {
  const auto fields = Fields(line);
  HOLDS(record.recognition_time == Integer(fields[13]));
  HOLDS(record.response_time == Integer(fields[22]));
  HOLDS(SameFloat(record.file_time, fields[16]) && SameFloat(record.xrt, fields[19]));
  constexpr size_t NUMBERS[] = {3, 5, 7, 9, 11};
  for (int i = 0; i < RESULT_TEXTS; ++i) HOLDS(ResultText(record, i) == fields[NUMBERS[i]]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::Text(data, size);
  const fuzz::MemoryFile file(text);
  std::vector<std::string> lines;
  char buffer[RESULT_LINE];
  const base::UniqueFile stream(std::fopen(file.Path(), "re"));
  while (std::fgets(buffer, sizeof buffer, stream.get()) != nullptr) lines.emplace_back(buffer);

  const auto count = int64_t(lines.size());
  RESULT_LIST* records = nullptr;
  fuzz::Quickly(text, [&] {
    FreeResultData(records);
    records = GetResultReadData(file.Path(), count);
  });
  const std::unique_ptr<RESULT_LIST, void (*)(RESULT_LIST*)> owner(records, FreeResultData);
  HOLDS(records != nullptr);
  for (size_t i = 0; i < lines.size(); ++i) CheckRecord(records[i], lines[i].c_str());
  if (count == 0) return 0;
  char table[RESULT_TABLE];
  FormatResultTable("2024/01/01", count, AverageOf(records, count), table);
  HOLDS(std::memchr(table, 0, sizeof table) != nullptr && std::strpbrk(table, "\"\\\r\n") == nullptr);
  HOLDS(std::strstr(table, "</table>") != nullptr);
  return 0;
}
