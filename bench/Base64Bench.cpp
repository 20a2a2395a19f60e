// Base64 of 1 MiB without line breaks, beside OpenSSL's block codec.
#include <zq/values/Base64.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kSize = 1 << 20;
constexpr int kFlags = zq::Base64::kNoLineBreaks;

const std::vector<unsigned char>& plain() {
  static const std::vector<unsigned char> data = [] {
    std::vector<unsigned char> d(kSize);
    std::mt19937 gen(42);
    for (auto& b : d) b = static_cast<unsigned char>(gen());
    return d;
  }();
  return data;
}

const std::string& encoded() {
  static const std::string text = [] {
    std::string t(zq::Base64::calcEncodedLength(kSize, kFlags), '\0');
    t.resize(zq::Base64::encode(plain().data(), kSize, &t[0], t.size(), kFlags));
    return t;
  }();
  return text;
}

void BM_ZqEncode(benchmark::State& state) {
  std::vector<char> out(zq::Base64::calcEncodedLength(kSize, kFlags));
  for (auto _ : state) {
    benchmark::DoNotOptimize(zq::Base64::encode(plain().data(), kSize, out.data(), out.size(), kFlags));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_OpenSslEncodeBlock(benchmark::State& state) {
  std::vector<unsigned char> out(kSize / 3 * 4 + 8);
  for (auto _ : state) {
    benchmark::DoNotOptimize(EVP_EncodeBlock(out.data(), plain().data(), static_cast<int>(kSize)));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_ZqDecode(benchmark::State& state) {
  const std::string& text = encoded();
  std::vector<unsigned char> out(zq::Base64::calcDencodedLength(text.data(), text.size()));
  for (auto _ : state) {
    benchmark::DoNotOptimize(zq::Base64::decode(text.data(), text.size(), out.data(), out.size()));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

void BM_OpenSslDecodeBlock(benchmark::State& state) {
  const std::string& text = encoded();
  std::vector<unsigned char> out(text.size() / 4 * 3 + 3);
  for (auto _ : state) {
    benchmark::DoNotOptimize(EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                             static_cast<int>(text.size())));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

BENCHMARK(BM_ZqEncode);
BENCHMARK(BM_OpenSslEncodeBlock);
BENCHMARK(BM_ZqDecode);
BENCHMARK(BM_OpenSslDecodeBlock);

}  // namespace
