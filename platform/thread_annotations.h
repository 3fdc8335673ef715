// Marks that tie state to the lock that guards it, for clang's thread-safety analysis; with other
// compilers they are comments.
#pragma once

#if defined(__clang__)
#define VALMERE_ANNOTATION(x) __attribute__((x))
#else
#define VALMERE_ANNOTATION(x)
#endif

#define CAPABILITY(x) VALMERE_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY VALMERE_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) VALMERE_ANNOTATION(guarded_by(x))
#define REQUIRES(...) VALMERE_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) VALMERE_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VALMERE_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) VALMERE_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) VALMERE_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS VALMERE_ANNOTATION(no_thread_safety_analysis)
