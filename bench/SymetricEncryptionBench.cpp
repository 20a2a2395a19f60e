// One-step AES-256-CBC messages with a fresh vector, beside the same work done directly through
// OpenSSL's EVP interface; and the seed walk, which has no peer.
#include <zq/crypto/SymetricEncryption.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <string>
#include <vector>

namespace {

const std::vector<unsigned char> kKey(32, 0x4B);

void BM_ZqFixedKeyEncrypt(benchmark::State& state) {
  const std::string data(static_cast<std::size_t>(state.range(0)), 'p');
  for (auto _ : state) benchmark::DoNotOptimize(zq::SymetricEncryption::encrypt(kKey, data.data(), data.size()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * state.range(0)));
}

void BM_EvpEncrypt(benchmark::State& state) {
  const std::string data(static_cast<std::size_t>(state.range(0)), 'p');
  for (auto _ : state) {
    std::vector<unsigned char> message(16 + data.size() + 16);
    RAND_bytes(message.data(), 16);
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    int n = 0, m = 0;
    EVP_EncryptInit_ex(ctx, EVP_aes_256_cbc(), nullptr, kKey.data(), message.data());
    EVP_EncryptUpdate(ctx, message.data() + 16, &n, reinterpret_cast<const unsigned char*>(data.data()),
                      static_cast<int>(data.size()));
    EVP_EncryptFinal_ex(ctx, message.data() + 16 + n, &m);
    EVP_CIPHER_CTX_free(ctx);
    message.resize(16 + static_cast<std::size_t>(n) + static_cast<std::size_t>(m));
    benchmark::DoNotOptimize(message);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * state.range(0)));
}

void BM_ZqSeedWalk(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(zq::SymetricEncryption::random("shared seed text", 32, 7));
}

}  // namespace

BENCHMARK(BM_ZqFixedKeyEncrypt)->Arg(64)->Arg(4096);
BENCHMARK(BM_EvpEncrypt)->Arg(64)->Arg(4096);
BENCHMARK(BM_ZqSeedWalk);
