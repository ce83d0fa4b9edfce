// Standard output and standard error of the agent.
#ifndef TOVIK_PROCESS_STANDARD_STREAMS_H
#define TOVIK_PROCESS_STANDARD_STREAMS_H

// Makes sure that descriptors 0 to 2 are open and has standard output written by the line; then as below. At
// the very beginning, before anything is printed.
void ReadyStandardStreams();

// Makes the streams such that a slow reader holds nobody up (base/lossy_stream.h), and looks whether standard
// error is the journal. While no other thread runs, each time that their descriptors were replaced.
void RenewStandardStreams();

#endif
