// Small compiler helpers shared by every folder.
#pragma once

// Lets the compiler check printf-style format strings against their arguments.
#if defined(__GNUC__)
#define ARD_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ARD_PRINTF_LIKE(fmt, args)
#endif

// Relaxed atomic access to plain fields that one thread writes and another
// reads (display toggles, the rendering delay): single aligned words, read
// and written whole, visible to race detectors as atomic.
template <typename T>
inline T AtomicLoad(const T& v) {
    return __atomic_load_n(&v, __ATOMIC_RELAXED);
}
template <typename T>
inline void AtomicStore(T& v, T x) {
    __atomic_store_n(&v, x, __ATOMIC_RELAXED);
}
