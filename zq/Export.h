// Symbol visibility for the zq shared library.
//
// The library is built with hidden visibility; ZQ_API marks what it exports. Classes whose
// typeid or dynamic_cast must work across the library boundary are exported whole.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define ZQ_API __attribute__((visibility("default")))
#define ZQ_LOCAL __attribute__((visibility("hidden")))
#else
#define ZQ_API
#define ZQ_LOCAL
#endif
