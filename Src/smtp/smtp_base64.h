// Base64 (RFC 4648). Every char* result is a fresh zero-terminated heap text that the caller
// frees with free(); null means failure with errno (ENOMEM unless said otherwise). Arguments are not null.
#ifndef SMTP_SMTP_BASE64_H
#define SMTP_SMTP_BASE64_H

#include <cstddef>

// RFC 4648 base64 in one line; *encodedLength (may be null) gets its length. length SIZE_MAX: a text.
char* smtp_base64_encode(const void* data, size_t length, size_t* encodedLength = nullptr);
// The four characters of the last 1, 2 or 3 bytes of a text, padded; no terminator.
void smtp_base64_encode_block(const unsigned char* block, size_t count, char* out);

#endif
