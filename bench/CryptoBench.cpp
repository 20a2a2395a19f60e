// SHA-crypt beside the system's crypt_r, and message digests beside raw OpenSSL EVP.
#include <zq/crypto/MessageDigest.h>

#include <benchmark/benchmark.h>
#include <crypt.h>
#include <openssl/evp.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using zq::crypto::MessageDigest;
using zq::crypto::secure_string;

const char kKey[] = "correct horse battery";

void zqCrypt(benchmark::State& state, const char* setting) {
  for (auto _ : state) benchmark::DoNotOptimize(MessageDigest::crypt(secure_string(kKey), secure_string(setting)));
}

void systemCrypt(benchmark::State& state, const char* setting) {
  crypt_data data;
  std::memset(&data, 0, sizeof(data));
  for (auto _ : state) benchmark::DoNotOptimize(crypt_r(kKey, setting, &data));
}

const std::vector<unsigned char>& buffer(std::size_t size) {
  static std::vector<unsigned char> data;
  if (data.size() != size) {
    data.resize(size);
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * 131);
  }
  return data;
}

void zqSha256(benchmark::State& state) {
  const auto& data = buffer(static_cast<std::size_t>(state.range(0)));
  MessageDigest md(MessageDigest::SHA256);
  for (auto _ : state) {
    md.clear();
    md.append(reinterpret_cast<const char*>(data.data()), data.size());
    benchmark::DoNotOptimize(md.digest());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

// The best a caller of EVP does by hand: one fetch, one context, reused.
void evpSha256(benchmark::State& state) {
  const auto& data = buffer(static_cast<std::size_t>(state.range(0)));
  EVP_MD* md = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  for (auto _ : state) {
    EVP_DigestInit_ex(context, md, nullptr);
    EVP_DigestUpdate(context, data.data(), data.size());
    EVP_DigestFinal_ex(context, out, &size);
    benchmark::DoNotOptimize(out);
  }
  EVP_MD_CTX_free(context);
  EVP_MD_free(md);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

BENCHMARK_CAPTURE(zqCrypt, sha256_5000, "$5$saltstring")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(systemCrypt, sha256_5000, "$5$saltstring")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(zqCrypt, sha512_5000, "$6$saltstring")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(systemCrypt, sha512_5000, "$6$saltstring")->Unit(benchmark::kMicrosecond);
BENCHMARK(zqSha256)->Arg(64 << 20)->Arg(64)->Unit(benchmark::kMicrosecond);
BENCHMARK(evpSha256)->Arg(64 << 20)->Arg(64)->Unit(benchmark::kMicrosecond);

}  // namespace
