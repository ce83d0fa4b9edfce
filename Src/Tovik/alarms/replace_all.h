#ifndef TOVIK_ALARMS_REPLACE_ALL_H
#define TOVIK_ALARMS_REPLACE_ALL_H

// A copy of str in which every occurrence of from, left to right and without overlap, is replaced by to: the
// caller frees it with free(). str itself when from is empty; null without memory.
char* replaceAll(char* str, const char* from, const char* to);

#endif
