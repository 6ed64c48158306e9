#ifndef ORU_MUTEX_H
#define ORU_MUTEX_H

#include <pthread.h>

namespace oru {

class ThreadCondition;

/// A mutual exclusion lock, not recursive. Works with std::lock_guard and its kin.
///
/// The destructor waits for the thread that holds it, and for those that are on their way back from a wait on a
/// ThreadCondition: so an owner may be destroyed while another thread leaves its critical section.
class Mutex {
public:
    Mutex();
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock();
    void unlock();
    bool try_lock();

private:
    friend class ThreadCondition;

    pthread_mutex_t m_mutex;
    pthread_cond_t m_waitersGone;
    int m_waiters = 0; ///< threads inside ThreadCondition::wait with this mutex; guarded by m_mutex
};

} // namespace oru

#endif
