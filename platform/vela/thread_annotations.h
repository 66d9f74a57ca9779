// Says which mutex guards what, for clang's -Wthread-safety to check; nothing to other compilers.
#ifndef PLATFORM_VELA_THREAD_ANNOTATIONS_H
#define PLATFORM_VELA_THREAD_ANNOTATIONS_H

#if defined(__clang__)
#define VELA_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VELA_THREAD_ATTRIBUTE(x)
#endif

// On a class: its objects are mutexes; its objects hold a mutex from birth to death.
#define VELA_CAPABILITY(name) VELA_THREAD_ATTRIBUTE(capability(name))
#define VELA_SCOPED_CAPABILITY VELA_THREAD_ATTRIBUTE(scoped_lockable)
// On a member: read and written only while the mutex is held.
#define VELA_GUARDED_BY(mutex) VELA_THREAD_ATTRIBUTE(guarded_by(mutex))
// On an operation: its caller holds the mutex; must not hold it.
#define VELA_REQUIRES(...) VELA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VELA_EXCLUDES(...) VELA_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
// On an operation: it takes the mutex; gives it back.
#define VELA_ACQUIRE(...) VELA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VELA_RELEASE(...) VELA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

#endif
