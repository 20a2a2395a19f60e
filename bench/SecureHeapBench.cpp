// The secure heap beside glibc malloc, malloc with a wipe before free, and OpenSSL's secure heap:
// alloc+free pairs of 16-4096 bytes among 1000 live blocks, and last-in-first-out runs of 8 and
// 64 blocks. Compare the ratios, not the times.
//
// The runs of 64 blocks outgrow the first page, so they show the price of giving back every page
// the moment it empties: one or two pages (1.5 on average) are mapped, locked, wiped and unmapped
// again on each run.
// heap_KiB and index_KiB are the secure heap's pages and the locked memory of its free index.
#include <zq/crypto/SecureHeap.h>

#include <benchmark/benchmark.h>
#include <openssl/crypto.h>

#include <cstdlib>
#include <random>
#include <type_traits>
#include <vector>

namespace {

constexpr std::size_t kLive = 1000;
constexpr std::size_t kTable = 4096;

// Sizes of 16 to 4096 bytes and slots among the live blocks, the same for every peer.
struct Tables {
  std::vector<std::size_t> size;
  std::vector<std::size_t> slot;
};

const Tables& tables() {
  static const Tables t = [] {
    Tables r;
    std::mt19937 gen(7);
    for (std::size_t i = 0; i < kTable; ++i) {
      r.size.push_back(16 + gen() % 4081);
      r.slot.push_back(gen() % kLive);
    }
    return r;
  }();
  return t;
}

struct ZqSecureHeap {
  static bool ready() { return true; }
  static void* alloc(std::size_t n) { return zq::crypto::malloc(n); }
  static void release(void* p, std::size_t) { zq::crypto::free(p); }

  // Locked memory beyond the heap's pages: the free index's pool.
  static double indexKiB() {
    std::size_t regions = 0;
    for (const auto& region : zq::crypto::page_allocator::pages) regions += region.second;
    return static_cast<double>(regions - zq::crypto::SecureHeap::instance().total_size()) / 1024;
  }
};

struct GlibcMalloc {
  static bool ready() { return true; }
  static void* alloc(std::size_t n) { return std::malloc(n); }
  static void release(void* p, std::size_t) { std::free(p); }
};

struct GlibcMallocCleanse {
  static bool ready() { return true; }
  static void* alloc(std::size_t n) { return std::malloc(n); }
  static void release(void* p, std::size_t n) {
    OPENSSL_cleanse(p, n);
    std::free(p);
  }
};

// One arena of 16 MiB for the whole run; OpenSSL wipes each block as it frees it.
struct OpenSslSecureHeap {
  static bool ready() {
    static const bool initialised = CRYPTO_secure_malloc_init(16 << 20, 16) != 0;
    return initialised;
  }
  static void* alloc(std::size_t n) { return OPENSSL_secure_malloc(n); }
  static void release(void* p, std::size_t) { OPENSSL_secure_free(p); }
};

template <class Heap>
void pairsAmongLiveBlocks(benchmark::State& state) {
  if (!Heap::ready()) return state.SkipWithError("the heap could not be set up");
  const Tables& t = tables();
  std::vector<void*> live(kLive);
  std::vector<std::size_t> sizes(kLive);
  for (std::size_t i = 0; i < kLive; ++i) live[i] = Heap::alloc(sizes[i] = t.size[i]);
  std::size_t k = 0;
  for (auto _ : state) {
    const std::size_t slot = t.slot[k % kTable];
    Heap::release(live[slot], sizes[slot]);
    live[slot] = Heap::alloc(sizes[slot] = t.size[(k * 7 + 3) % kTable]);
    benchmark::DoNotOptimize(live[slot]);
    ++k;
  }
  if constexpr (std::is_same_v<Heap, ZqSecureHeap>) {
    state.counters["heap_KiB"] = static_cast<double>(zq::crypto::SecureHeap::instance().total_size()) / 1024;
    state.counters["index_KiB"] = ZqSecureHeap::indexKiB();
  }
  for (std::size_t i = 0; i < kLive; ++i) Heap::release(live[i], sizes[i]);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// A run of blocks freed in the reverse order of their allocation; one small block stays for the
// whole benchmark, as a program's long-lived keys would.
template <class Heap>
void lastInFirstOut(benchmark::State& state) {
  if (!Heap::ready()) return state.SkipWithError("the heap could not be set up");
  const Tables& t = tables();
  const auto depth = static_cast<std::size_t>(state.range(0));
  void* anchor = Heap::alloc(32);
  std::vector<void*> stack(depth);
  std::size_t k = 0;
  for (auto _ : state) {
    for (std::size_t i = 0; i < depth; ++i) stack[i] = Heap::alloc(t.size[(k + i) % kTable]);
    benchmark::DoNotOptimize(stack.data());
    for (std::size_t i = depth; i-- > 0;) Heap::release(stack[i], t.size[(k + i) % kTable]);
    k += depth;
  }
  Heap::release(anchor, 32);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * depth));
}

BENCHMARK_TEMPLATE(pairsAmongLiveBlocks, ZqSecureHeap);
BENCHMARK_TEMPLATE(pairsAmongLiveBlocks, OpenSslSecureHeap);
BENCHMARK_TEMPLATE(pairsAmongLiveBlocks, GlibcMalloc);
BENCHMARK_TEMPLATE(pairsAmongLiveBlocks, GlibcMallocCleanse);
BENCHMARK_TEMPLATE(lastInFirstOut, ZqSecureHeap)->Arg(8)->Arg(64);
BENCHMARK_TEMPLATE(lastInFirstOut, OpenSslSecureHeap)->Arg(8)->Arg(64);
BENCHMARK_TEMPLATE(lastInFirstOut, GlibcMalloc)->Arg(8)->Arg(64);
BENCHMARK_TEMPLATE(lastInFirstOut, GlibcMallocCleanse)->Arg(8)->Arg(64);

}  // namespace
