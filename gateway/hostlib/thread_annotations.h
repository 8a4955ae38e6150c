// Clang thread-safety annotations (checked with -Wthread-safety; empty for other compilers).
// GUARDED_BY(mu) on a member: read or written only with mu held. REQUIRES(mu) on a function: the
// caller holds mu. The other macros declare lock types and what their members acquire/release.
#pragma once

#if defined(__clang__)
#define KORVA_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KORVA_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(name) KORVA_THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY KORVA_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(mu) KORVA_THREAD_ANNOTATION(guarded_by(mu))
#define PT_GUARDED_BY(mu) KORVA_THREAD_ANNOTATION(pt_guarded_by(mu))
#define REQUIRES(...) KORVA_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) KORVA_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) KORVA_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KORVA_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KORVA_THREAD_ANNOTATION(no_thread_safety_analysis)
