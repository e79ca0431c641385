// The descriptors of open files. A forked process has a copy of each and with it a share in its locks, which would then
// last as long as either process: the copies are to be closed.
#pragma once

namespace qx {

// Opens a file, with the flags of open(2), and keeps it from the programs that the process starts. -1 and the error
// number when that fails.
int OpenDescriptor(const char* path, int flags);

void CloseDescriptor(int descriptor);

// In a new process: closes the copies of all open descriptors. One that another thread was opening or closing in the
// moment of the fork may be missed.
void CloseInheritedDescriptors();

}  // namespace qx
