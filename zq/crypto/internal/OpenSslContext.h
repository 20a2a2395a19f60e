// The cryptography layer's own OpenSSL library context. Not exported.
#pragma once

#include <openssl/types.h>

namespace zq {
namespace crypto {
namespace internal {

// A library context of this library alone, with OpenSSL's default provider and, where it is
// installed, the legacy one (MD4). The application's own context and configuration stay as
// they are. Made at first use, thread-safely, and kept until the process ends, so that code
// running at exit can still use it. Null only if OpenSSL could not make it.
OSSL_LIB_CTX* libraryContext();

}  // namespace internal
}  // namespace crypto
}  // namespace zq
