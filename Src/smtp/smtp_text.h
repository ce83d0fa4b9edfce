// The texts of a mail: checked sizes, strings, base64, line splitting, folding, date, boundary, file
// contents. Nothing here knows a session. Every char* result is a fresh zero-terminated heap text that the
// caller frees with free(); null means failure with errno (ENOMEM unless said otherwise). Arguments are not
// null.
#ifndef SMTP_SMTP_TEXT_H
#define SMTP_SMTP_TEXT_H

#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string_view>

// *result = a op b and 0; 1 when it does not fit, *result is then unspecified.
int smtp_si_add_size_t(size_t a, size_t b, size_t* result);
int smtp_si_sub_size_t(size_t a, size_t b, size_t* result);
int smtp_si_mul_size_t(size_t a, size_t b, size_t* result);

// realloc of count * size bytes; null with ENOMEM on overflow too, the old block then lives on.
void* smtp_reallocarray(void* block, size_t count, size_t size);
char* smtp_strdup(const char* text);
// Copies the text with its terminator; returns the terminator's place.
char* smtp_stpcpy(char* destination, const char* text);

// The text with every non-overlapping search text replaced, left to right. An empty search text copies.
char* smtp_str_replace(const char* search, const char* replace, const char* text);

// Bytes of the UTF-8 character that this byte leads, 1 to 4 by its high bits; 0: not a leading byte.
size_t smtp_utf8_charlen(char lead);
// Length in bytes of the shortest run of whole characters from the start that holds at least minimum bytes,
// or of the whole text when it is shorter. A character cut by the end of the text counts as whole. SIZE_MAX:
// a byte that cannot lead a character stands where one must begin.
size_t smtp_strnlen_utf8(std::string_view text, size_t minimum);
// 1 when any byte is 128 or above.
int smtp_str_has_nonascii_utf8(const char* text);

// RFC 4648 base64 in one line; *encodedLength (may be null) gets its length. length SIZE_MAX: a text.
char* smtp_base64_encode(const void* data, size_t length, size_t* encodedLength = nullptr);
// The four characters of the last 1, 2 or 3 bytes of a text, padded; no terminator.
void smtp_base64_encode_block(const unsigned char* block, size_t count, char* out);

// The text in pieces of n bytes, each followed by the ending; a piece grows to the end of the character it
// would cut. An empty text gives one ending. EINVAL: n is 0 or the text is not UTF-8.
char* smtp_chunk_split(const char* text, size_t n, const char* ending);
// smtp_chunk_split of smtp_base64_encode at 78 with CRLF, in one pass without the text between: of memory (as
// smtp_base64_encode takes it), of the rest of a stream, of a file (both as smtp_file_get_contents reads
// them).
char* smtp_base64_lines(const void* data, size_t length, size_t* linesLength);
char* smtp_ffile_base64_lines(FILE* stream, size_t* linesLength);
char* smtp_file_base64_lines(const char* path, size_t* linesLength);

// Folds a header line (RFC 5322 2.2.3) at its white space so that lines stay within width, where they can:
// the last blank before width - 2 becomes CRLF and a space. Words are never split. Width is at least 3.
char* smtp_fold_whitespace(const char* line, size_t width);
// Where the first of the lines ends: the index of the blank to be replaced, or the length of the rest.
size_t smtp_fold_whitespace_get_offset(const char* line, size_t width);

// Now as an RFC 5322 date, 31 characters. 0, or -1 when there is none. The zone counts whole hours: minutes
// of it are dropped (+0530 reads +0500), and summer time is not part of it.
int smtp_date_rfc_2822(char* destination);
// The same of a local time that is offset seconds ahead of UTC.
int smtp_date_format(const tm& local, long offset, char* destination);

// "mime" and ten random letters A..Z: 14 characters and the terminator.
void smtp_gen_mime_boundary(char* destination);

// All bytes of a file, or from where the stream stands to its end; *length may be null. One read of known
// size where the file has one, but what comes is what counts: it may grow or shrink meanwhile. errno is that
// of the failed open or read. A FIFO without a writer is an empty file; nothing waits for one.
char* smtp_file_get_contents(const char* path, size_t* length);
char* smtp_ffile_get_contents(FILE* stream, size_t* length);

#endif
