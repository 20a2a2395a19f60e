// IP address text beside the system's inet_pton and inet_ntop. Compare the ratios.
#include <zq/Net/IPAddress.h>
#include <zq/Net/MacAddress.h>

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

namespace {

const std::string kV4 = "192.168.100.200";
const std::string kV6 = "2001:db8:85a3::8a2e:370:7334";

const std::string& textOf(const benchmark::State& state) { return state.range(0) == 4 ? kV4 : kV6; }

void BM_IPAddress_parse(benchmark::State& state) {
  const std::string& text = textOf(state);
  for (auto _ : state) {
    zq::IPAddress address(text);
    benchmark::DoNotOptimize(address);
  }
}
BENCHMARK(BM_IPAddress_parse)->Arg(4)->Arg(6);

void BM_inet_pton(benchmark::State& state) {
  const std::string& text = textOf(state);
  const int family = state.range(0) == 4 ? AF_INET : AF_INET6;
  unsigned char bytes[16];
  for (auto _ : state) {
    benchmark::DoNotOptimize(inet_pton(family, text.c_str(), bytes));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_inet_pton)->Arg(4)->Arg(6);

void BM_IPAddress_toString(benchmark::State& state) {
  const zq::IPAddress address(textOf(state));
  for (auto _ : state) benchmark::DoNotOptimize(address.toString());
}
BENCHMARK(BM_IPAddress_toString)->Arg(4)->Arg(6);

void BM_IPAddress_toStringBuffer(benchmark::State& state) {
  const zq::IPAddress address(textOf(state));
  char buffer[64];
  for (auto _ : state) {
    benchmark::DoNotOptimize(address.toString(buffer, sizeof buffer));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_IPAddress_toStringBuffer)->Arg(4)->Arg(6);

void BM_inet_ntop(benchmark::State& state) {
  const int family = state.range(0) == 4 ? AF_INET : AF_INET6;
  unsigned char bytes[16];
  inet_pton(family, textOf(state).c_str(), bytes);
  char buffer[INET6_ADDRSTRLEN];
  for (auto _ : state) {
    benchmark::DoNotOptimize(inet_ntop(family, bytes, buffer, sizeof buffer));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_inet_ntop)->Arg(4)->Arg(6);

void BM_MacAddress_fromString(benchmark::State& state) {
  const std::string text = "00-1a-2b-3c-4d-5e";
  for (auto _ : state) {
    zq::MacAddress mac(text);
    benchmark::DoNotOptimize(mac);
  }
}
BENCHMARK(BM_MacAddress_fromString);

}  // namespace
