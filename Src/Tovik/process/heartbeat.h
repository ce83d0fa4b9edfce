// The heartbeat: a line a second, by which the main thread shows that it lives.
#ifndef TOVIK_PROCESS_HEARTBEAT_H
#define TOVIK_PROCESS_HEARTBEAT_H

extern int counter;           // of heartbeats
extern volatile int running;  // 1 while the main loop runs

// Writes heartbeats until the stop, or until one cannot be written. Signals are taken here.
void MainLoop();

#endif
