// Whether a text is UTF-8. Does not block, keeps no state and traces nothing. Any thread may call it.
#ifndef CHARSET_IS_UTF8_H
#define CHARSET_IS_UTF8_H

// Returns 1 when the NUL-terminated str consists of whole UTF-8 characters or is empty, else 0. Lead bytes up
// to 0xFD are accepted, and so are characters of five and six bytes. Overlong forms, surrogates and values
// above U+10FFFF are not detected. str may not be null.
[[nodiscard]] int is_UTF8(const char* str);

#endif
