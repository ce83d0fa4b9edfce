// Checks that a configuration file can be read. The settings themselves are read by config/config.h.
#ifndef TOVIK_PROCESS_CONF_FILE_H
#define TOVIK_PROCESS_CONF_FILE_H

// Seconds between two heartbeats. Only test_conf_file changes it.
extern int delay;

// Opens the file of option -f and reports the result to syslog. reload is 1 after SIGHUP. Returns 0 when no
// file was given, else -1.
int read_conf_file(int reload);

// Reads one decimal number from a file into delay. Returns 0, or 1 after a message on standard error.
int test_conf_file(const char* path);

#endif
