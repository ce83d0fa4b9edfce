// Descriptors 0, 1 and 2, which must never be free: what is opened next would lie there.
#ifndef BASE_STANDARD_DESCRIPTORS_H
#define BASE_STANDARD_DESCRIPTORS_H

namespace base {

// Opens the null device on those of the three that are closed.
void GuardStandardDescriptors();

// close(2) of a number that a record holds. Descriptors 0, 1 and 2 are never free afterwards: what was there
// is closed and, in the same step, replaced by the null device (inherited by children, as is usual for
// these), so that no other thread's socket or file can come to lie on a number that is closed by habit. That
// counts as a close that succeeded, also when the null device cannot be opened and the descriptor therefore
// stays as it is. 0, or -1 with errno.
int CloseDescriptor(int fd);

}  // namespace base

#endif
