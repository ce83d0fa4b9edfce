// Contents of files. Every char* result is a fresh zero-terminated heap text that the caller
// frees with free(); null means failure with errno (ENOMEM unless said otherwise). Arguments are not null.
#ifndef SMTP_SMTP_FILE_H
#define SMTP_SMTP_FILE_H

#include <cstddef>
#include <cstdio>

// All bytes of a file, or from where the stream stands to its end; *length may be null. One read of known
// size where the file has one, but what comes is what counts: it may grow or shrink meanwhile. errno is that
// of the failed open or read. A FIFO without a writer is an empty file; nothing waits for one.
char* smtp_file_get_contents(const char* path, size_t* length);
char* smtp_ffile_get_contents(FILE* stream, size_t* length);

#endif
