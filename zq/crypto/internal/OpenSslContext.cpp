#include <zq/crypto/internal/OpenSslContext.h>

#include <openssl/err.h>
#include <openssl/provider.h>

namespace zq {
namespace crypto {
namespace internal {

namespace {

OSSL_LIB_CTX* makeContext() {
  OSSL_LIB_CTX* context = OSSL_LIB_CTX_new();
  if (context == nullptr) return nullptr;
  // A missing legacy module is no error of the caller's: keep its report off their queue.
  ERR_set_mark();
  OSSL_PROVIDER_load(context, "default");
  OSSL_PROVIDER_load(context, "legacy");
  ERR_pop_to_mark();
  return context;
}

}  // namespace

OSSL_LIB_CTX* libraryContext() {
  // Never freed: digests fetched from it are handed out for the life of the process.
  static OSSL_LIB_CTX* const context = makeContext();
  return context;
}

}  // namespace internal
}  // namespace crypto
}  // namespace zq
