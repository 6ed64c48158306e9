#ifndef CDXBENCH_ALLOCATIONCOUNTER_H
#define CDXBENCH_ALLOCATIONCOUNTER_H

#include <cstdint>

namespace cdxbench {

/// How many times the program has allocated through `new` so far, on all threads.
std::uint64_t allocationCount();

} // namespace cdxbench

#endif
