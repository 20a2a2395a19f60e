// RSA with a 2048-bit key, raw PKCS #1 signing and recovery, beside the same work done directly
// through OpenSSL's EVP interface.
#include <zq/crypto/RSAKeyPair.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <string>

namespace {

using zq::crypto::RSAKeyPair;
using zq::crypto::secure_string;

struct Keys {
  RSAKeyPair pair;
  EVP_PKEY* evp = nullptr;  // the same key, for the peer
  Keys() {
    pair.create(2048);
    const secure_string text = pair.printPrivateKey("bench");
    BIO* bio = BIO_new_mem_buf(text.data(), static_cast<int>(text.size()));
    evp = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, const_cast<char*>("bench"));
    BIO_free(bio);
  }
};
const Keys& keys() {
  static const Keys k;
  return k;
}
const secure_string kData(100, 'd');

void BM_ZqSign(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(keys().pair.sign(kData));
}

// A raw PKCS #1 operation of one direction through EVP_PKEY, context made per call as a user would.
template <int (*Init)(EVP_PKEY_CTX*), int (*Run)(EVP_PKEY_CTX*, unsigned char*, size_t*, const unsigned char*, size_t)>
std::string evpRaw(const std::string& in) {
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(keys().evp, nullptr);
  std::string out(256, '\0');
  size_t size = out.size();
  if (Init(ctx) != 1 || EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) != 1 ||
      Run(ctx, reinterpret_cast<unsigned char*>(&out[0]), &size, reinterpret_cast<const unsigned char*>(in.data()),
          in.size()) != 1)
    size = 0;
  EVP_PKEY_CTX_free(ctx);
  out.resize(size);
  return out;
}

void BM_EvpSign(benchmark::State& state) {
  const std::string data(kData.begin(), kData.end());
  for (auto _ : state) benchmark::DoNotOptimize(evpRaw<EVP_PKEY_sign_init, EVP_PKEY_sign>(data));
}

void BM_ZqVerify(benchmark::State& state) {
  const secure_string signature = keys().pair.sign(kData);
  for (auto _ : state) benchmark::DoNotOptimize(keys().pair.verify(kData, signature));
}

void BM_EvpVerifyRecover(benchmark::State& state) {
  const secure_string s = keys().pair.sign(kData);
  const std::string signature(s.begin(), s.end()), data(kData.begin(), kData.end());
  for (auto _ : state)
    benchmark::DoNotOptimize(evpRaw<EVP_PKEY_verify_recover_init, EVP_PKEY_verify_recover>(signature) == data);
}

}  // namespace

BENCHMARK(BM_ZqSign);
BENCHMARK(BM_EvpSign);
BENCHMARK(BM_ZqVerify);
BENCHMARK(BM_EvpVerifyRecover);
