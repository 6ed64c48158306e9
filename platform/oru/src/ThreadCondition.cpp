#include <oru/ThreadCondition.h>

namespace oru {

ThreadCondition::ThreadCondition() {
    pthread_mutex_init(&m_guard, nullptr);
    pthread_cond_init(&m_wakeUp, nullptr);
    pthread_cond_init(&m_waitersGone, nullptr);
}

ThreadCondition::~ThreadCondition() {
    pthread_mutex_lock(&m_guard);
    m_closing = true;
    pthread_cond_broadcast(&m_wakeUp);
    while (m_waiters > 0)
        pthread_cond_wait(&m_waitersGone, &m_guard);
    pthread_mutex_unlock(&m_guard);
    pthread_cond_destroy(&m_waitersGone);
    pthread_cond_destroy(&m_wakeUp);
    pthread_mutex_destroy(&m_guard);
}

void ThreadCondition::wait(Mutex& locked) {
    pthread_mutex_lock(&m_guard);
    ++m_waiters;
    ++locked.m_waiters;
    pthread_mutex_unlock(&locked.m_mutex);
    if (!m_closing)
        pthread_cond_wait(&m_wakeUp, &m_guard);
    pthread_mutex_unlock(&m_guard);

    pthread_mutex_lock(&locked.m_mutex);
    if (--locked.m_waiters == 0)
        pthread_cond_signal(&locked.m_waitersGone);
    pthread_mutex_lock(&m_guard);
    if (--m_waiters == 0)
        pthread_cond_signal(&m_waitersGone);
    pthread_mutex_unlock(&m_guard);
}

void ThreadCondition::signal() {
    pthread_mutex_lock(&m_guard);
    pthread_cond_signal(&m_wakeUp);
    pthread_mutex_unlock(&m_guard);
}

void ThreadCondition::broadcast() {
    pthread_mutex_lock(&m_guard);
    pthread_cond_broadcast(&m_wakeUp);
    pthread_mutex_unlock(&m_guard);
}

} // namespace oru
