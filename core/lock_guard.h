// Scoped ownership of a pthread mutex. The module's locks are plain pthread
// mutexes because they are part of the exported ABI.
#ifndef ATCMD_CORE_LOCK_GUARD_H
#define ATCMD_CORE_LOCK_GUARD_H

#include <pthread.h>

namespace atcmd {

class MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t *m) : m_(m) { pthread_mutex_lock(m_); }
    ~MutexGuard() { pthread_mutex_unlock(m_); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

private:
    pthread_mutex_t *m_;
};

}  // namespace atcmd

#endif
