#include "sysinfo/qxapi_text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "sysinfo/process_status.h"

namespace {

constexpr size_t QXAPI_SPRINTF_LIMIT = 0x80000 - 4096;

[[gnu::format(printf, 1, 0)]] char* FormatToHeap(const char* format, va_list arguments) {
  va_list arguments_again;
  va_copy(arguments_again, arguments);
  const int text_length = std::vsnprintf(nullptr, 0, format, arguments);
  char* heap_text = nullptr;
  if (text_length >= 0 && static_cast<size_t>(text_length) < QXAPI_SPRINTF_LIMIT) {
    const size_t heap_size = static_cast<size_t>(text_length) + 1;
    heap_text = static_cast<char*>(std::malloc(heap_size));
    if (heap_text != nullptr) std::vsnprintf(heap_text, heap_size, format, arguments_again);
  }
  va_end(arguments_again);
  return heap_text;
}

// Calls each with the start of every word, until it returns false.
template <typename Each>
void ForEachCommandWord(char* buf, uint64_t len, Each each_word) {
  for (uint64_t word_start = 0; word_start < len;) {
    const void* const word_nul = std::memchr(buf + word_start, '\0', len - word_start);
    const uint64_t word_end =
        word_nul == nullptr ? len : static_cast<uint64_t>(static_cast<const char*>(word_nul) - buf);
    if (!each_word(buf + word_start)) return;
    word_start = word_end + 1;
  }
}

}  // namespace

unsigned int __qxapi_peek_byte__(const void* buf, size_t i) {
  return static_cast<const unsigned char*>(buf)[i];
}

unsigned char* __qxapi_poke_byte__(void* buf, size_t i, unsigned char c) {
  unsigned char* const byte = static_cast<unsigned char*>(buf) + i;
  *byte = c;
  return byte;
}

const char* __qxapi_skip_space__(const char* p) {
  if (p == nullptr) return nullptr;
  while (sysinfo::IsProcWhite(*p)) ++p;
  return p;
}

char* __qxapi_get_word_sep__(const char* seps, const char** cursor) {
  if (cursor == nullptr || *cursor == nullptr) return nullptr;
  std::string_view cursor_rest(*cursor);
  const std::string_view cursor_word = sysinfo::CutProcWord(seps, &cursor_rest);
  *cursor = cursor_rest.data();
  return cursor_word.empty() ? nullptr : ::strndup(cursor_word.data(), cursor_word.size());
}

char* __qxapi_alloc_sprintf__(const char* fmt, ...) {
  if (fmt == nullptr) return nullptr;
  va_list arguments;
  va_start(arguments, fmt);
  char* const text = FormatToHeap(fmt, arguments);
  va_end(arguments);
  return text;
}

int __qxapi_command_line_decoder__(char* buf, uint64_t len, uint32_t* argc, char*** argv) {
  *argc = 0;
  *argv = nullptr;
  if (buf == nullptr || len == 0) return -1;
  uint32_t word_count = 0;
  ForEachCommandWord(buf, len, [&](char*) { return ++word_count < QXAPI_MAX_WORDS; });
  auto** const argv_array = static_cast<char**>(std::malloc(word_count * sizeof(char*)));
  if (argv_array == nullptr) return 0;
  ForEachCommandWord(buf, len, [&](char* word) {
    argv_array[(*argc)++] = word;
    return *argc < word_count;
  });
  *argv = argv_array;
  return 1;
}
