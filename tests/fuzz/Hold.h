#ifndef CDXTESTS_FUZZ_HOLD_H
#define CDXTESTS_FUZZ_HOLD_H

#include <cstdio>
#include <cstdlib>

namespace cdxfuzz {

/// Ends the run with the claim that does not hold.
inline void hold(bool condition, const char* claim) {
    if (condition)
        return;
    std::fprintf(stderr, "does not hold: %s\n", claim);
    std::abort();
}

} // namespace cdxfuzz

#endif
