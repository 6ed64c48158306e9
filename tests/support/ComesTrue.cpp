#include "ComesTrue.h"

#include "Tcp.h"

#include <poll.h>

namespace cdxtest {

bool comesTrue(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        ::poll(nullptr, 0, 1);
    }
    return true;
}

} // namespace cdxtest
