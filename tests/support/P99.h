#ifndef CDXTESTS_SUPPORT_P99_H
#define CDXTESTS_SUPPORT_P99_H

#include <algorithm>
#include <chrono>
#include <vector>

namespace cdxtest {

/// What 99 of 100 of the times are not above.
inline std::chrono::microseconds p99(std::vector<std::chrono::steady_clock::duration> times) {
    std::sort(times.begin(), times.end());
    return std::chrono::duration_cast<std::chrono::microseconds>(times[times.size() * 99 / 100]);
}

} // namespace cdxtest

#endif
