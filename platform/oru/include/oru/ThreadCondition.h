#ifndef ORU_THREADCONDITION_H
#define ORU_THREADCONDITION_H

#include <oru/Mutex.h>

#include <pthread.h>

namespace oru {

/// A wake-up that threads wait for. There is no memory in it: a signal that nobody waits for is lost, and a wait may
/// also end without a signal; who needs more keeps a flag under the mutex.
///
/// The destructor ends the waits in progress and returns when they have left. Each of them locks its Mutex again
/// first, so whoever destroys must not hold it.
class ThreadCondition {
public:
    ThreadCondition();
    ~ThreadCondition();
    ThreadCondition(const ThreadCondition&) = delete;
    ThreadCondition& operator=(const ThreadCondition&) = delete;

    /// Unlocks `locked`, which the caller holds, waits for the next signal or broadcast, and locks it again.
    void wait(Mutex& locked);
    /// Wakes one of the waiting threads.
    void signal();
    /// Wakes all waiting threads.
    void broadcast();

private:
    // Locked after the waiters' Mutex, never before it: a waiter takes it while it still holds its Mutex, so that no
    // signal falls between the unlocking and the waiting, and lets go of it before it locks its Mutex again.
    pthread_mutex_t m_guard;
    pthread_cond_t m_wakeUp;
    pthread_cond_t m_waitersGone;
    int m_waiters = 0;      ///< threads inside wait(); guarded by m_guard
    bool m_closing = false; ///< being destroyed; guarded by m_guard
};

} // namespace oru

#endif
