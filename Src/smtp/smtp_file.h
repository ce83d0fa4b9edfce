// Reading whole files, as they are or as the base64 lines of an attachment. Each char* result is a new
// zero-terminated text on the heap, which the caller frees with free(). Null means failure, with errno
// (ENOMEM unless said otherwise). Arguments must not be null.
#ifndef SMTP_SMTP_FILE_H
#define SMTP_SMTP_FILE_H

#include <cstddef>
#include <cstdio>

// All bytes of a file, or of a stream from its position to its end. *length may be null. A file of known size
// is read in one go, but it may grow or shrink meanwhile; what is read counts. errno is that of the failed
// open or read. A FIFO without a writer is an empty file; the call does not wait for one.
char* smtp_file_get_contents(const char* path, size_t* length);
char* smtp_ffile_get_contents(FILE* mailFile, size_t* length);

// The same as base64 lines (smtp_base64.h).
char* smtp_file_base64_lines(const char* path, size_t* length);
char* smtp_ffile_base64_lines(FILE* mailFile, size_t* length);

#endif
