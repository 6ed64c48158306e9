#ifndef CDXTESTS_SUPPORT_SINCE_H
#define CDXTESTS_SUPPORT_SINCE_H

#include <chrono>

namespace cdxtest {

inline std::chrono::milliseconds since(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

} // namespace cdxtest

#endif
