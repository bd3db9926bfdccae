// Critical sections as re-entrant POSIX mutexes kept inside the Win32 record.
#include <pthread.h>

#include <orvanest/platform/win32.h>

static_assert(sizeof(pthread_mutex_t) <= sizeof(CRITICAL_SECTION), "the record must hold a mutex");
static_assert(alignof(pthread_mutex_t) <= alignof(CRITICAL_SECTION), "the record must align a mutex");

namespace {
pthread_mutex_t* MutexOf(LPCRITICAL_SECTION cs) { return reinterpret_cast<pthread_mutex_t*>(cs->opaque); }
}  // namespace

void InitializeCriticalSection(LPCRITICAL_SECTION cs) {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(MutexOf(cs), &attr);
    pthread_mutexattr_destroy(&attr);
}

void DeleteCriticalSection(LPCRITICAL_SECTION cs) { pthread_mutex_destroy(MutexOf(cs)); }

void EnterCriticalSection(LPCRITICAL_SECTION cs) { pthread_mutex_lock(MutexOf(cs)); }

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION cs) { return pthread_mutex_trylock(MutexOf(cs)) == 0; }

void LeaveCriticalSection(LPCRITICAL_SECTION cs) { pthread_mutex_unlock(MutexOf(cs)); }
