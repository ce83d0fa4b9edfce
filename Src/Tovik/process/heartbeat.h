// The heartbeat: the main thread writes a line each second to show that it runs.
#ifndef TOVIK_PROCESS_HEARTBEAT_H
#define TOVIK_PROCESS_HEARTBEAT_H

extern int counter;           // the number of heartbeats
extern volatile int running;  // 1 while the heartbeats go on

// Writes heartbeats until the stop, or until one cannot be written. Signals are handled between two
// heartbeats.
void MainLoop();

#endif
