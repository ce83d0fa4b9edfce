// Output streams that drop text instead of blocking. The reader of the agent's output (a pipe, a terminal or
// a socket) may stop reading, and a plain write(2) would then block for ever. These streams drop text that
// does not fit and report it as written. They drop whole lines where possible. After a line that had to be
// cut, the next text starts on a new line. A slow reader gets time: writers wait for it up to a quarter of a
// second in any second. After one wait that ran out, no writer waits again until the reader has read
// something. Real errors (no reader any more, no space on the disk) are still errors.
//
// Regular files and memory devices (such as the null device) do not block. Their streams stay as they are and
// cost nothing more. Descriptors 0 to 2, and what children inherit of them, are never changed: the agent
// writes through an open file description of its own, on a descriptor number far above those in use.
#ifndef BASE_LOSSY_STREAM_H
#define BASE_LOSSY_STREAM_H

#include <string_view>

#include "base/unique_handles.h"

namespace base {

// Makes stdout and stderr lossy where descriptors 1 and 2 may block. Call it while no other thread runs, and
// again after the descriptors were replaced.
void MakeStandardStreamsLossy();

// Returns the stream itself, or a lossy stream that replaces and owns it. Null stays null. The file's
// descriptor becomes non-blocking, so it must not be shared.
UniqueFile LossyStream(UniqueFile file);

// Writes a text to standard output, after everything printed before. It bypasses the buffer of stdout unless
// something is left in there. Any thread may call it. Errors are ignored.
void Echo(std::string_view lossy_text);

}  // namespace base

#endif
