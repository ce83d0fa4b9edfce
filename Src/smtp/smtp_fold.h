// Folding of header lines. Each char* result is a new zero-terminated text on the heap, which the caller
// frees with free(). Null means failure, with errno (ENOMEM unless said otherwise). Arguments must not be
// null.
#ifndef SMTP_SMTP_FOLD_H
#define SMTP_SMTP_FOLD_H

#include <cstddef>

// Folds a header line (RFC 5322 2.2.3) at its white space, so that its lines stay within width where
// possible: the last blank before width - 2 becomes CRLF and a space. Words are never split. A width below 3
// counts as 3.
char* smtp_fold_whitespace(const char* line, size_t width);
// The length of the first of those lines: the index of the blank to replace, or the length of the whole text.
size_t smtp_fold_whitespace_get_offset(const char* line, size_t width);

#endif
