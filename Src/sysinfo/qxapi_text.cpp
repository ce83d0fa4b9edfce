#include "sysinfo/qxapi_text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "sysinfo/process_status.h"

namespace {

constexpr size_t QXAPI_SPRINTF_LIMIT = 0x80000 - 4096;

[[gnu::format(printf, 1, 0)]] char* SprintfToHeap(const char* format, va_list sprintf_arguments) {
  va_list sprintf_arguments_again;
  va_copy(sprintf_arguments_again, sprintf_arguments);
  const int sprintf_length = std::vsnprintf(nullptr, 0, format, sprintf_arguments);
  char* sprintf_text = nullptr;
  if (sprintf_length >= 0 && static_cast<size_t>(sprintf_length) < QXAPI_SPRINTF_LIMIT) {
    const size_t sprintf_size = static_cast<size_t>(sprintf_length) + 1;
    sprintf_text = static_cast<char*>(std::malloc(sprintf_size));
    if (sprintf_text != nullptr) std::vsnprintf(sprintf_text, sprintf_size, format, sprintf_arguments_again);
  }
  va_end(sprintf_arguments_again);
  return sprintf_text;
}

// Calls each with the start of every word, until it returns false.
template <typename Each>
void ForEachCommandWord(char* command_line, uint64_t len, Each each_word) {
  for (uint64_t command_word_start = 0; command_word_start < len;) {
    const void* const word_nul =
        std::memchr(command_line + command_word_start, '\0', len - command_word_start);
    const uint64_t word_end =
        word_nul == nullptr ? len : static_cast<uint64_t>(static_cast<const char*>(word_nul) - command_line);
    if (!each_word(command_line + command_word_start)) return;
    command_word_start = word_end + 1;
  }
}

}  // namespace

unsigned int __qxapi_peek_byte__(const void* buf, size_t i) {
  return static_cast<const unsigned char*>(buf)[i];
}

unsigned char* __qxapi_poke_byte__(void* buf, size_t i, unsigned char c) {
  unsigned char* const qxapi_byte = static_cast<unsigned char*>(buf) + i;
  *qxapi_byte = c;
  return qxapi_byte;
}

const char* __qxapi_skip_space__(const char* p) {
  if (p == nullptr) return nullptr;
  while (sysinfo::IsStatusWhite(*p)) ++p;
  return p;
}

char* __qxapi_get_word_sep__(const char* seps, const char** cursor) {
  if (cursor == nullptr || *cursor == nullptr) return nullptr;
  std::string_view qxapi_rest(*cursor);
  const std::string_view qxapi_word = sysinfo::CutStatusWord(seps, &qxapi_rest);
  *cursor = qxapi_rest.data();
  return qxapi_word.empty() ? nullptr : ::strndup(qxapi_word.data(), qxapi_word.size());
}

char* __qxapi_alloc_sprintf__(const char* fmt, ...) {
  if (fmt == nullptr) return nullptr;
  va_list sprintf_arguments;
  va_start(sprintf_arguments, fmt);
  char* const text = SprintfToHeap(fmt, sprintf_arguments);
  va_end(sprintf_arguments);
  return text;
}

int __qxapi_command_line_decoder__(char* buf, uint64_t len, uint32_t* argc, char*** argv) {
  *argc = 0;
  *argv = nullptr;
  if (buf == nullptr || len == 0) return -1;
  uint32_t argv_count = 0;
  ForEachCommandWord(buf, len, [&](char*) { return ++argv_count < QXAPI_MAX_WORDS; });
  auto** const argv_array = static_cast<char**>(std::malloc(argv_count * sizeof(char*)));
  if (argv_array == nullptr) return 0;
  ForEachCommandWord(buf, len, [&](char* command_word) {
    argv_array[(*argc)++] = command_word;
    return *argc < argv_count;
  });
  *argv = argv_array;
  return 1;
}
