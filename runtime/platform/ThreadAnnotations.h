#pragma once

// Clang's thread-safety attributes behind our own names, so that the analysis
// preset can prove what each mutex guards. Empty for every other compiler.
#if defined(__clang__)
#define VORN_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VORN_THREAD_ATTRIBUTE(x)
#endif

#define VORN_CAPABILITY(name) VORN_THREAD_ATTRIBUTE(capability(name))
#define VORN_SCOPED_CAPABILITY VORN_THREAD_ATTRIBUTE(scoped_lockable)
#define VORN_GUARDED_BY(mutex) VORN_THREAD_ATTRIBUTE(guarded_by(mutex))
#define VORN_PT_GUARDED_BY(mutex) VORN_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
#define VORN_REQUIRES(...) VORN_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VORN_REQUIRES_SHARED(...) VORN_THREAD_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define VORN_EXCLUDES(...) VORN_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define VORN_ACQUIRE(...) VORN_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VORN_ACQUIRE_SHARED(...) VORN_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define VORN_TRY_ACQUIRE(...) VORN_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VORN_RELEASE(...) VORN_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VORN_RELEASE_SHARED(...) VORN_THREAD_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define VORN_RETURN_CAPABILITY(x) VORN_THREAD_ATTRIBUTE(lock_returned(x))
#define VORN_NO_THREAD_SAFETY_ANALYSIS VORN_THREAD_ATTRIBUTE(no_thread_safety_analysis)
