// Plain globals that several threads share without a lock (the device
// pointer, link descriptors, thread handles, g_timeout) keep their exported
// C types; inside the module they are read and written through these, so
// that no access can tear and the compiler cannot cache a value in a loop.
// Ordering between such globals is not promised, as it never was.
#ifndef ATCMD_CORE_RELAXED_H
#define ATCMD_CORE_RELAXED_H

#include <unistd.h>

namespace atcmd {

template <typename T>
inline T relaxed_load(const T *p) {
    return __atomic_load_n(p, __ATOMIC_RELAXED);
}

template <typename T>
inline void relaxed_store(T *p, T v) {
    __atomic_store_n(p, v, __ATOMIC_RELAXED);
}

// Takes the value and leaves `empty` behind, in one step: of several threads
// that race to release one resource (a descriptor, a thread to join), exactly
// one gets it.
template <typename T>
inline T take(T *p, T empty) {
    return __atomic_exchange_n(p, empty, __ATOMIC_ACQ_REL);
}

// A new descriptor (or the device) is stored with publish and read with
// acquire_load: a thread that sees the new number also sees it open, even
// when nothing else orders it after the opening thread.
template <typename T>
inline void publish(T *p, T v) {
    __atomic_store_n(p, v, __ATOMIC_RELEASE);
}

template <typename T>
inline T acquire_load(const T *p) {
    return __atomic_load_n(p, __ATOMIC_ACQUIRE);
}

}  // namespace atcmd

#endif
