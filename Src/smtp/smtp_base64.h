// Base64 (RFC 4648). Each char* result is a new zero-terminated text on the heap, which the caller frees with
// free(). Null means failure, with errno (ENOMEM unless said otherwise). Arguments must not be null.
#ifndef SMTP_SMTP_BASE64_H
#define SMTP_SMTP_BASE64_H

#include <cstddef>

// Base64 in one line. *encodedLength (may be null) receives its length. A length of SIZE_MAX means that data
// is a text.
char* smtp_base64_encode(const void* data, size_t length, size_t* encodedLength = nullptr);
// Writes the four characters of the last 1, 2 or 3 bytes of the data, with padding and without a terminator.
void smtp_base64_encode_block(const unsigned char* block, size_t count, char* out);

#endif
