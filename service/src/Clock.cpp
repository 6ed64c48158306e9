#include <cdxservice/Clock.h>

namespace cdxservice {

Clock::~Clock() = default;

std::chrono::milliseconds Clock::sinceEpoch() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch());
}

std::chrono::steady_clock::time_point Clock::steady() const {
    return std::chrono::steady_clock::now();
}

} // namespace cdxservice
