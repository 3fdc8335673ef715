// Tells whether a sanitizer watches this build; gcc and clang say it in ways of their own.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VALMERE_SANITIZER 1
#define VALMERE_ADDRESS_SANITIZER 1
#endif
#if __has_feature(thread_sanitizer)
#define VALMERE_SANITIZER 1
#define VALMERE_THREAD_SANITIZER 1
#endif
#endif

#if defined(__SANITIZE_ADDRESS__)
#define VALMERE_SANITIZER 1
#define VALMERE_ADDRESS_SANITIZER 1
#endif
#if defined(__SANITIZE_THREAD__)
#define VALMERE_SANITIZER 1
#define VALMERE_THREAD_SANITIZER 1
#endif
