#include <oru/Mutex.h>

#include <system_error>

namespace oru {

Mutex::Mutex() {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_cond_init(&m_waitersGone, nullptr);
}

Mutex::~Mutex() {
    pthread_mutex_lock(&m_mutex);
    while (m_waiters > 0)
        pthread_cond_wait(&m_waitersGone, &m_mutex);
    pthread_mutex_unlock(&m_mutex);
    pthread_cond_destroy(&m_waitersGone);
    pthread_mutex_destroy(&m_mutex);
}

void Mutex::lock() {
    if (const int error = pthread_mutex_lock(&m_mutex))
        throw std::system_error(error, std::generic_category(), "cannot lock a mutex");
}

void Mutex::unlock() {
    pthread_mutex_unlock(&m_mutex);
}

bool Mutex::try_lock() {
    return pthread_mutex_trylock(&m_mutex) == 0;
}

} // namespace oru
