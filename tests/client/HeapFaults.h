#pragma once

namespace client_test {

// The client test program replaces malloc, calloc and realloc
// (allocation_test.cc; not in sanitizer builds). After failHeapAfter(n) the
// next n allocations succeed and every later one fails, as when memory has
// run out, until failHeapAfter(-1). Unlike an address-space limit this also
// holds under an emulator, which keeps such limits for itself.
void failHeapAfter(long allocations);
// Allocations failed so far.
long heapFailures();

}  // namespace client_test
