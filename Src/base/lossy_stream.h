// Streams that rather lose text than time. Whoever reads the agent's output - a pipe, a terminal, a socket -
// may stop reading, and a write(2) would then wait for ever. Through these streams it does not: text that
// finds no room is dropped and counts as written, as whole lines where possible; behind a line that had to be
// cut the next text begins on a line of its own. A reader that is merely slow is given time, up to a quarter
// of a second in any second; after one wait in vain nobody waits for it until it has read again. True errors
// (no reader any more, no room on the disk) are errors here too.
//
// Regular files and the memory devices (the null device, say) take what is written at once: their streams
// stay as they are, and cost nothing more. Descriptors 0 to 2, and what children inherit of them, are never
// changed: the agent writes through a description of its own, on a descriptor far above those in use.
#ifndef BASE_LOSSY_STREAM_H
#define BASE_LOSSY_STREAM_H

#include <string_view>

#include "base/owners.h"

namespace base {

// Makes stdout and stderr such streams, according to what descriptors 1 and 2 are now. To be called while no
// other thread runs; again, after the descriptors were replaced.
void MakeStandardStreamsLossy();

// The stream itself, or one that takes its place and owns it (null stays null). Its descriptor is made
// non-blocking, so it must not be shared.
UniqueFile LossyStream(UniqueFile file);

// Writes text to standard output behind all that was printed before: as std::fwrite(stdout) does, and by way
// of the stream's buffer only when something is left in there. Any thread. Errors are ignored.
void Echo(std::string_view text);

}  // namespace base

#endif
