// Annotations for clang's thread-safety analysis (-Wthread-safety): which object is a lock, which
// lock guards which field, and which functions need, take or give back a lock. The compiler then
// checks the locking rules that comments used to state. Under other compilers they expand to
// nothing.
//
// The lock order of the library is declared with ACQUIRED_AFTER where one object can name the
// other, and checked under -Wthread-safety-beta; the whole order is written once in
// source/Quorvane/sessionRegistry.h.
#pragma once

#if defined(__clang__)
#define QUORVANE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QUORVANE_THREAD_ANNOTATION(x)
#endif

// A type whose objects are locks; `x` names the kind in the compiler's messages.
#define CAPABILITY(x) QUORVANE_THREAD_ANNOTATION(capability(x))
// A guard object that holds a lock for its lifetime (its constructor acquires, its destructor
// releases).
#define SCOPED_CAPABILITY QUORVANE_THREAD_ANNOTATION(scoped_lockable)
// The field may be read only with the lock held (shared or exclusive), written only with it
// held exclusively.
#define GUARDED_BY(x) QUORVANE_THREAD_ANNOTATION(guarded_by(x))
// When this lock and the named ones are held together, this one was taken last.
#define ACQUIRED_AFTER(...) QUORVANE_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
// The caller must hold the locks (exclusively / at least shared).
#define REQUIRES(...) QUORVANE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) QUORVANE_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
// The function takes the locks (no argument: the object itself) and returns holding them.
#define ACQUIRE(...) QUORVANE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) QUORVANE_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
// The function tries once: it returns holding the locks exactly when it returns the first argument.
#define TRY_ACQUIRE(...) QUORVANE_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE_SHARED(...) QUORVANE_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
// The function gives back locks that the caller held.
#define RELEASE(...) QUORVANE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) QUORVANE_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
// The caller must not hold the locks (the function takes them itself).
#define EXCLUDES(...) QUORVANE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// For the bodies of the lock primitives themselves, which the analysis cannot follow.
#define NO_THREAD_SAFETY_ANALYSIS QUORVANE_THREAD_ANNOTATION(no_thread_safety_analysis)
