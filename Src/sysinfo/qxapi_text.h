// What the snapshot (qxapi_process.h) does with texts, for the sources and tests of this folder.
// White space is what process_status.h says.
#ifndef SYSINFO_QXAPI_TEXT_H
#define SYSINFO_QXAPI_TEXT_H

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t QXAPI_MAX_WORDS = 393216;

// Returns byte i of buf, 0..255.
unsigned int __qxapi_peek_byte__(const void* buf, size_t i);
// Stores c at byte i of buf and returns its address.
unsigned char* __qxapi_poke_byte__(void* buf, size_t i, unsigned char c);
// Returns p advanced past white space; null for null.
const char* __qxapi_skip_space__(const char* p);

// Takes the next word off the text at *cursor. The word starts at the first character that is not white space
// and ends before a character of seps (before white space when seps is null) or at the end of the text,
// without white space at its end. *cursor moves past the separator, or to the end. Returns a copy that the
// caller frees. Returns null for an empty word and without memory. Returns null and leaves the cursor
// unchanged when cursor or *cursor is null.
char* __qxapi_get_word_sep__(const char* seps, const char** cursor);

// Formats into a text of exactly the needed size, which the caller frees. Returns null for a null format,
// without memory, and when the text is longer than 520,191 characters.
[[gnu::format(printf, 1, 2)]] char* __qxapi_alloc_sprintf__(const char* fmt, ...);

// Sets *argv to an array, which the caller frees, of pointers to the words of buf. A word ends at a NUL, the
// last one at the end of the len bytes. Two NULs in a row enclose an empty word. Words beyond QXAPI_MAX_WORDS
// are left out. Returns 1. Returns 0 without memory, and -1 when buf is null or len is 0; then *argc is 0 and
// *argv null.
int __qxapi_command_line_decoder__(char* buf, uint64_t len, uint32_t* argc, char*** argv);

#endif
