// Lock annotations that clang's -Wthread-safety checks; other compilers ignore them.
#ifndef BASE_THREAD_ANNOTATIONS_H_
#define BASE_THREAD_ANNOTATIONS_H_

#if defined(__clang__)
#define BASE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define BASE_THREAD_ANNOTATION(x)
#endif

#define LOCKABLE BASE_THREAD_ANNOTATION(capability("mutex"))
#define SCOPED_LOCKABLE BASE_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) BASE_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) BASE_THREAD_ANNOTATION(pt_guarded_by(x))
#define EXCLUSIVE_LOCKS_REQUIRED(...) BASE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define LOCKS_EXCLUDED(...) BASE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define EXCLUSIVE_LOCK_FUNCTION(...) BASE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define UNLOCK_FUNCTION(...) BASE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS BASE_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif  // BASE_THREAD_ANNOTATIONS_H_
