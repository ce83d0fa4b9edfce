// Proofs that a configuration file can be read; nothing is taken from it (see config/config.h for that).
#ifndef TOVIK_PROCESS_CONF_FILE_H
#define TOVIK_PROCESS_CONF_FILE_H

// Seconds slept per heartbeat; only test_conf_file changes it.
extern int delay;

// Opens the file of -f, with a line to syslog of what came of it; reload is 1 after a hang-up. 0 when no file
// was given, else -1.
int read_conf_file(int reload);

// Reads one decimal number from a file into delay. 0, or 1 with a message on standard error.
int test_conf_file(const char* path);

#endif
