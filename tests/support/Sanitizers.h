// Which sanitizer the build has, for the few tests that can't run under one.
#pragma once

#if defined(__has_feature)
#define HWTABLES_HAS_SANITIZER(name) __has_feature(name)
#else
#define HWTABLES_HAS_SANITIZER(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || HWTABLES_HAS_SANITIZER(address_sanitizer)
#define HWTABLES_ASAN 1
#else
#define HWTABLES_ASAN 0
#endif

#if defined(__SANITIZE_THREAD__) || HWTABLES_HAS_SANITIZER(thread_sanitizer)
#define HWTABLES_TSAN 1
#else
#define HWTABLES_TSAN 0
#endif
