// Symbol visibility for the zq shared library.
//
// The library is built with hidden visibility; ZQ_API marks what it exports. Classes whose
// typeid or dynamic_cast must work across the library boundary are exported whole.
//
// ZQ_TLS_WORD marks the few thread-local words on the emission path, reached in one
// instruction (initial-exec model) instead of a call. They take static TLS room, which a
// library loaded by dlopen gets from the C library's reserve as long as such words stay few.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define ZQ_API __attribute__((visibility("default")))
#define ZQ_LOCAL __attribute__((visibility("hidden")))
#define ZQ_TLS_WORD __attribute__((tls_model("initial-exec"))) thread_local
#else
#define ZQ_API
#define ZQ_LOCAL
#define ZQ_TLS_WORD thread_local
#endif
