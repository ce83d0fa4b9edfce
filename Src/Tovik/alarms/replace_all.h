// The one replacement of texts: newlines of an alarm's body by "<br />".
#ifndef TOVIK_ALARMS_REPLACE_ALL_H
#define TOVIK_ALARMS_REPLACE_ALL_H

// Returns a copy of str with every occurrence of from, left to right and without overlap, replaced by to. The
// caller frees the copy with free(). Returns str itself when from is empty, null without memory.
char* replaceAll(char* str, const char* from, const char* to);

#endif
