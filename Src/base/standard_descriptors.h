// Keeping descriptors 0, 1 and 2 in use. If one of them were free, the next file or socket would get its
// number.
#ifndef BASE_STANDARD_DESCRIPTORS_H
#define BASE_STANDARD_DESCRIPTORS_H

namespace base {

// Opens the null device on each of the three that is closed.
void GuardStandardDescriptors();

// Closes a descriptor whose number comes from a record. Descriptors 0, 1 and 2 are not freed but replaced by
// the null device in one step, so no other thread's file or socket gets a number that is then closed a second
// time. Children inherit the replacement, as usual for these three. If the null device cannot be opened, the
// descriptor stays as it is.
// Returns 0, also for every call on 0, 1 or 2, or -1 with errno.
int CloseKeepingStandard(int descriptor);

}  // namespace base

#endif
