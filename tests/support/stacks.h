// Where every thread of the process stands.
#pragma once

namespace qx_test {

// Prints the call stacks of all threads, those included that the library has started, to standard error.
void PrintAllStacks();

}  // namespace qx_test
