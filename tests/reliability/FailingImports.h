// Makes what a loaded library imports fail: its allocations from the n-th on, or its locking.
//
// The addresses in the library's import table are replaced, so the very library that ships is
// tested, the calls of nobody else are touched, and sanitizers still see every block. For one
// thread at a time.
#pragma once

#include <cstddef>

namespace reliability {

// Replaces the imports; ends the process when there is one that allocates in a way not known here.
void takeOverImports(void* library);

// From now on the n-th allocation of all such libraries fails: that one alone, or all that follow
// too.
void failAllocation(size_t n, bool isForEver);

// Lets every allocation succeed again. How many have failed.
size_t stopFailing();

// Allocations that such libraries have made and not given back.
size_t countLiveAllocations();

// Lets pthread_mutex_lock fail.
void failLocks(bool isFailing);

} // namespace reliability
