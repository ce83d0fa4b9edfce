// Folding of header lines. Every char* result is a fresh zero-terminated heap text that the caller
// frees with free(); null means failure with errno (ENOMEM unless said otherwise). Arguments are not null.
#ifndef SMTP_SMTP_FOLD_H
#define SMTP_SMTP_FOLD_H

#include <cstddef>

// Folds a header line (RFC 5322 2.2.3) at its white space so that lines stay within width, where they can:
// the last blank before width - 2 becomes CRLF and a space. Words are never split. Width is at least 3.
char* smtp_fold_whitespace(const char* line, size_t width);
// Where the first of the lines ends: the index of the blank to be replaced, or the length of the rest.
size_t smtp_fold_whitespace_get_offset(const char* line, size_t width);

#endif
