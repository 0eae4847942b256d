// What lock guards what, in words that clang checks at compile time (-Wthread-safety). Other compilers see nothing.
#pragma once

#if defined(__clang__)
#define LOGICALCONTROLS_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define LOGICALCONTROLS_THREAD_SAFETY(attribute)
#endif

// A class that is a lock, and one that holds a lock for as long as it lives.
#define LOGICALCONTROLS_LOCK LOGICALCONTROLS_THREAD_SAFETY(capability("mutex"))
#define LOGICALCONTROLS_LOCK_GUARD LOGICALCONTROLS_THREAD_SAFETY(scoped_lockable)

// A field that is touched only while the lock is held.
#define LOGICALCONTROLS_GUARDED_BY(lock) LOGICALCONTROLS_THREAD_SAFETY(guarded_by(lock))

// A function that is called with the lock held.
#define LOGICALCONTROLS_REQUIRES(lock) LOGICALCONTROLS_THREAD_SAFETY(requires_capability(lock))

// A function that takes a lock, takes it if its result is this one, or releases it.
#define LOGICALCONTROLS_ACQUIRES(...) LOGICALCONTROLS_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define LOGICALCONTROLS_TRIES(...) LOGICALCONTROLS_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define LOGICALCONTROLS_RELEASES(...) LOGICALCONTROLS_THREAD_SAFETY(release_capability(__VA_ARGS__))

// A function that the check can't follow.
#define LOGICALCONTROLS_UNCHECKED LOGICALCONTROLS_THREAD_SAFETY(no_thread_safety_analysis)
