#include "SigpipeGuard.h"

#include <ctime>

namespace xalutil {

namespace {

sigset_t onlySigpipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

} // namespace

SigpipeGuard::SigpipeGuard(bool isNeeded) {
    if (!isNeeded)
        return;
    const sigset_t blocked = onlySigpipe();
    sigset_t former;
    pthread_sigmask(SIG_BLOCK, &blocked, &former);
    if (sigismember(&former, SIGPIPE) == 0)
        m_former = former;
}

SigpipeGuard::~SigpipeGuard() {
    if (!m_former)
        return;
    // What was raised meanwhile is this thread's own doing, and must not be delivered by the unblocking.
    const sigset_t raised = onlySigpipe();
    const timespec atOnce{};
    sigtimedwait(&raised, nullptr, &atOnce);
    pthread_sigmask(SIG_SETMASK, &*m_former, nullptr);
}

} // namespace xalutil
