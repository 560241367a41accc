// What differs between compilers, in one place: format checking and thread-safety annotations.
// Both are empty where the compiler does not know them.
#pragma once

#if defined(__MINGW32__) && !defined(__clang__)
#define TARNLO_PRINTF(format_index, first_argument) \
  __attribute__((format(gnu_printf, format_index, first_argument)))
#elif defined(__GNUC__)
#define TARNLO_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define TARNLO_PRINTF(format_index, first_argument)
#endif

#if defined(__clang__)
#define TARNLO_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TARNLO_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(name) TARNLO_THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY TARNLO_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(lock) TARNLO_THREAD_ANNOTATION(guarded_by(lock))
#define REQUIRES(...) TARNLO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) TARNLO_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define ACQUIRE(...) TARNLO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) TARNLO_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) TARNLO_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE_SHARED(...) TARNLO_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) TARNLO_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) TARNLO_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) TARNLO_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
// For a lock that is made of another one, and for tests that keep one for ever.
#define NO_THREAD_SAFETY_ANALYSIS TARNLO_THREAD_ANNOTATION(no_thread_safety_analysis)
