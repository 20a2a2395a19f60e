#include <zq/crypto/SecureHeap.h>
#include <zq/crypto/internal/SecureHeapSets.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <future>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zq::test {
namespace {

using crypto::page_allocator;
using crypto::SecureHeap;
using testing::HasSubstr;
using testing::Not;

constexpr std::size_t kGranularity = 65536;

// The heap with its protected parts in reach.
class TestHeap : public SecureHeap {
 public:
  explicit TestHeap(std::size_t granularity = kGranularity) : SecureHeap(granularity) {}
  using SecureHeap::best_fit;
  using SecureHeap::block;
  using SecureHeap::block_class;
  using SecureHeap::BlockInfo;

  bool isFree(void* p) { return (block(p)->prev_and_flags & 1) == 0; }
};

class SecureHeapTest : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(heap.heapWalk());
    EXPECT_EQ(0u, heap.total_size()) << "a test left blocks behind";
  }

  TestHeap heap;
};

bool allZero(const void* p, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(p);
  return std::all_of(bytes, bytes + size, [](unsigned char b) { return b == 0; });
}

// The VmFlags of the mapping that holds `address` ("rd wr mr ... lo dd"), or "" if none does.
std::string mappingFlags(const void* address) {
  std::ifstream smaps("/proc/self/smaps");
  const auto a = reinterpret_cast<std::uintptr_t>(address);
  bool inside = false;
  for (std::string line; std::getline(smaps, line);) {
    unsigned long long start = 0, end = 0;
    if (std::sscanf(line.c_str(), "%llx-%llx ", &start, &end) == 2 && line.find('-') < line.find(' '))
      inside = start <= a && a < end;
    else if (inside && line.compare(0, 8, "VmFlags:") == 0)
      return line.substr(8) + " ";
  }
  return "";
}

// ---- sizes and pages ----

TEST_F(SecureHeapTest, CapacitiesAndPageSizesFollowTheRequest) {
  void* one = heap.malloc(1);
  EXPECT_EQ(16u, heap.msize(one));
  EXPECT_EQ(16u, heap.allocated_size());
  EXPECT_EQ(kGranularity, heap.total_size());

  void* zero = heap.malloc(0);
  void* seventeen = heap.malloc(17);
  EXPECT_EQ(16u, heap.msize(zero));
  EXPECT_EQ(24u, heap.msize(seventeen));
  EXPECT_EQ(56u, heap.allocated_size());
  EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(seventeen) % 8);

  // A page of its own whose tail would be 24 bytes: too small to cut, kept as slack.
  void* whole = heap.malloc(kGranularity - 8 - 24);
  EXPECT_EQ(kGranularity - 8 - 24 + 24, heap.msize(whole));
  EXPECT_EQ(2 * kGranularity, heap.total_size());

  // 65529 needs 65536 and a header: one byte too many for one granule.
  void* big = heap.malloc(65529);
  EXPECT_EQ(65536u, heap.msize(big));
  EXPECT_EQ(2 * kGranularity + 131072, heap.total_size());
  EXPECT_TRUE(heap.heapWalk());

  for (void* p : {big, zero, whole, one, seventeen}) heap.free(p);
  EXPECT_EQ(0u, heap.allocated_size());
}

TEST(SecureHeapInstance, FreeFunctionsUseOneHeapOfSixteenSystemPages) {
  SecureHeap& heap = SecureHeap::instance();
  EXPECT_EQ(&heap, &SecureHeap::instance());
  ASSERT_EQ(0u, heap.total_size());
  void* p = crypto::malloc(1);
  EXPECT_EQ(16 * page_allocator::page_size(), heap.total_size());
  EXPECT_EQ(16u, heap.allocated_size());
  EXPECT_EQ(16u, crypto::msize(p));
  EXPECT_EQ(0u, crypto::msize(nullptr));
  void* q = crypto::realloc(nullptr, 40);
  EXPECT_EQ(56u, heap.allocated_size());
  p = crypto::realloc(p, 300);
  EXPECT_EQ(304u, crypto::msize(p));
  crypto::free(p);
  crypto::free(q);
  crypto::free(nullptr);
  EXPECT_EQ(0u, heap.total_size());
  EXPECT_FALSE(crypto::hasOpenSSL_customMalloc);
}

TEST_F(SecureHeapTest, APageGoesBackTheMomentItEmpties) {
  void* a = heap.malloc(100);
  void* large = heap.malloc(4 * kGranularity - 32);  // a page of four granules, all its own
  void* b = heap.malloc(100);
  const char* largePage = reinterpret_cast<const char*>(heap.block(large));
  EXPECT_EQ(kGranularity + 262144, heap.total_size());
  EXPECT_EQ(1u, page_allocator::pages.count(largePage));

  heap.free(large);
  EXPECT_EQ(kGranularity, heap.total_size());
  EXPECT_EQ(0u, page_allocator::pages.count(largePage));
  heap.free(a);
  EXPECT_EQ(kGranularity, heap.total_size());
  heap.free(b);
  EXPECT_EQ(0u, heap.total_size());
}

TEST_F(SecureHeapTest, ThreeNeighboursFreedInAnyOrderBecomeOneFreeBlock) {
  const std::array<std::size_t, 3> sizes = {40, 72, 104};
  std::array<int, 3> order = {0, 1, 2};
  do {
    SCOPED_TRACE(testing::Message() << "order " << order[0] << order[1] << order[2]);
    void* before = heap.malloc(16);
    std::array<char*, 3> blocks;
    for (int i = 0; i < 3; ++i) blocks[i] = static_cast<char*>(heap.malloc(sizes[i]));
    void* after = heap.malloc(16);
    ASSERT_EQ(blocks[0] + 48, blocks[1]);
    ASSERT_EQ(blocks[1] + 80, blocks[2]);

    for (int i : order) {
      heap.free(blocks[i]);
      ASSERT_TRUE(heap.heapWalk());
    }
    TestHeap::BlockInfo* merged = heap.block(blocks[0]);
    EXPECT_EQ(48u + 80 + 112, merged->size);
    EXPECT_TRUE(heap.isFree(blocks[0]));
    // Only the joined block and the page's free remainder are left in the index.
    for (std::size_t size : sizes) EXPECT_EQ(merged, heap.best_fit(size)) << size;
    EXPECT_TRUE(allZero(blocks[0], merged->size - 8)) << "old headers or contents are left";

    heap.free(after);
    heap.free(before);
    EXPECT_EQ(0u, heap.total_size());
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(SecureHeapTest, BestFitTakesTheSmallestListAndItsLatestBlock) {
  std::vector<void*> guards;
  const auto between = [&](std::size_t size) {
    void* p = heap.malloc(size);
    guards.push_back(heap.malloc(16));
    return p;
  };
  void* small = between(64);
  void* first = between(128);
  void* second = between(128);
  void* large = between(256);
  for (void* p : {first, second, small, large}) heap.free(p);

  EXPECT_EQ(second, heap.malloc(100));  // 128 is the smallest that fits; the latest freed first
  EXPECT_EQ(first, heap.malloc(128));
  EXPECT_EQ(small, heap.malloc(64));
  void* cut = heap.malloc(72);  // only the 256 fits, and is cut
  EXPECT_EQ(large, cut);
  EXPECT_EQ(72u, heap.msize(cut));
  EXPECT_TRUE(heap.heapWalk());
  for (void* p : {first, second, small, cut}) heap.free(p);
  for (void* p : guards) heap.free(p);
}

// ---- wiping ----

TEST_F(SecureHeapTest, FreedPayloadsReadZero) {
  void* guard1 = heap.malloc(64);
  auto* lone = static_cast<unsigned char*>(heap.malloc(200));
  auto* a = static_cast<unsigned char*>(heap.malloc(64));
  auto* b = static_cast<unsigned char*>(heap.malloc(64));
  auto* c = static_cast<unsigned char*>(heap.malloc(64));
  void* guard2 = heap.malloc(64);
  for (unsigned char* p : {lone, a, b, c}) std::memset(p, 0xA5, heap.msize(p));

  // Alone in its list, a free block's links are null: nothing of it is left.
  heap.free(lone);
  EXPECT_TRUE(heap.isFree(lone));
  EXPECT_TRUE(allZero(lone, 200));

  // Joined to a free predecessor (a, then b) and taking in a free successor (c, by b): old
  // headers and links go with the payloads.
  heap.free(a);
  heap.free(c);
  heap.free(b);
  EXPECT_FALSE(heap.isFree(guard2));
  EXPECT_TRUE(allZero(a, 3 * 72 - 8));

  // A shrinking realloc wipes what it cuts off; the tail's own header follows the kept part.
  auto* shrunk = static_cast<unsigned char*>(heap.malloc(256));
  void* guard3 = heap.malloc(16);
  std::memset(shrunk, 0x5A, 256);
  ASSERT_EQ(shrunk, heap.realloc(shrunk, 64));
  EXPECT_EQ(std::vector<unsigned char>(64, 0x5A), std::vector<unsigned char>(shrunk, shrunk + 64));
  EXPECT_TRUE(heap.isFree(shrunk + 72));
  EXPECT_TRUE(allZero(shrunk + 72, 256 - 72));

  for (void* p : {guard1, guard2, guard3, static_cast<void*>(shrunk)}) heap.free(p);
}

// ---- realloc ----

// Runs realloc on another thread and gives up on it after a deadline, so a call that blocks
// on its own lock fails the test instead of hanging the program.
void* reallocWithDeadline(SecureHeap& heap, void* p, std::size_t size) {
  auto task = std::make_shared<std::packaged_task<void*()>>([&heap, p, size] { return heap.realloc(p, size); });
  std::future<void*> result = task->get_future();
  std::thread([task] { (*task)(); }).detach();
  if (result.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
    std::fprintf(stderr, "realloc(%p, %zu) did not return\n", p, size);
    std::_Exit(1);
  }
  return result.get();
}

TEST_F(SecureHeapTest, ReallocShrinksGrowsInPlaceAndMoves) {
  auto* p = static_cast<unsigned char*>(heap.malloc(200));
  void* guard = heap.malloc(16);
  for (int i = 0; i < 200; ++i) p[i] = static_cast<unsigned char>(i);
  const std::vector<unsigned char> first100(p, p + 100);
  const std::size_t base = heap.allocated_size();

  // Within 16 bytes below the capacity a tail could not be free: nothing changes.
  EXPECT_EQ(p, heap.realloc(p, 184));
  EXPECT_EQ(200u, heap.msize(p));
  EXPECT_EQ(base, heap.allocated_size());

  // Shrinking cuts the block to the rounded size, in place.
  EXPECT_EQ(p, heap.realloc(p, 100));
  EXPECT_EQ(104u, heap.msize(p));
  EXPECT_EQ(base - 96, heap.allocated_size());
  EXPECT_TRUE(heap.heapWalk());

  // Growing into the free tail just cut, in place; a large enough rest is cut off again.
  EXPECT_EQ(p, heap.realloc(p, 160));
  EXPECT_EQ(160u, heap.msize(p));
  EXPECT_EQ(base - 40, heap.allocated_size());
  // A rest under 32 bytes stays as slack.
  EXPECT_EQ(p, heap.realloc(p, 184));
  EXPECT_EQ(200u, heap.msize(p));
  EXPECT_EQ(base, heap.allocated_size());
  EXPECT_TRUE(heap.heapWalk());
  EXPECT_EQ(first100, std::vector<unsigned char>(p, p + 100));

  // The guard leaves no room: the block moves, its content with it, and the old one is wiped.
  auto* moved = static_cast<unsigned char*>(reallocWithDeadline(heap, p, 1000));
  ASSERT_NE(p, moved);
  EXPECT_EQ(1000u, heap.msize(moved));
  EXPECT_EQ(base - 200 + 1000, heap.allocated_size());
  EXPECT_EQ(first100, std::vector<unsigned char>(moved, moved + 100));
  EXPECT_TRUE(heap.isFree(p));
  EXPECT_TRUE(allZero(p, 200));
  EXPECT_TRUE(heap.heapWalk());

  // realloc(p, 0) keeps the smallest block; odd sizes are rounded as malloc rounds them.
  void* small = heap.realloc(moved, 0);
  EXPECT_EQ(moved, small);
  EXPECT_EQ(16u, heap.msize(small));
  for (std::size_t odd : {13u, 101u, 37u, 250u, 3u}) {
    small = heap.realloc(small, odd);
    EXPECT_EQ(std::max<std::size_t>(16, (odd + 7) / 8 * 8), heap.msize(small)) << odd;
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(small) % 8);
    ASSERT_TRUE(heap.heapWalk()) << odd;
  }

  void* fresh = heap.realloc(nullptr, 40);
  EXPECT_EQ(40u, heap.msize(fresh));
  for (void* q : {small, guard, fresh}) heap.free(q);
}

// ---- bad input ----

TEST_F(SecureHeapTest, BadPointersAndSizesChangeNothing) {
  LogCapture log;
  const auto reports = [&log] { return log.linesWith("not a block in use of this heap").size(); };
  void* keep = heap.malloc(16);
  void* p = heap.malloc(64);
  void* q = heap.malloc(64);
  void* r = heap.malloc(64);

  heap.free(nullptr);
  EXPECT_EQ(0u, reports());
  heap.free(p);
  heap.free(p);  // a free block
  heap.free(q);  // joined to p
  heap.free(q);  // its header went with the join
  void* foreign = std::malloc(64);
  heap.free(foreign);
  EXPECT_EQ(nullptr, heap.realloc(foreign, 128));
  std::free(foreign);
  heap.free(static_cast<char*>(r) + 4);  // inside a block
  EXPECT_EQ(5u, reports());
  EXPECT_EQ(16u + 64, heap.allocated_size());
  EXPECT_TRUE(heap.heapWalk());

  heap.free(r);
  heap.free(keep);
  heap.free(r);  // its page has gone back
  EXPECT_EQ(6u, reports());
  EXPECT_THAT(log.linesWith("not a block")[0], HasSubstr("CRITICAL [zq::crypto::SecureHeap::free]"));

  // A page can't be larger than its 32-bit size word; a failed realloc leaves the block as it was.
  void* s = heap.malloc(32);
  std::memset(s, 0x11, 32);
  EXPECT_THROW(heap.malloc(SIZE_MAX), std::bad_alloc);
  EXPECT_THROW(heap.malloc(0xFFFFFFF0u), std::bad_alloc);
  EXPECT_THROW(heap.realloc(s, SIZE_MAX), std::bad_alloc);
  EXPECT_EQ(32u, heap.msize(s));
  EXPECT_EQ(std::vector<unsigned char>(32, 0x11),
            std::vector<unsigned char>(static_cast<unsigned char*>(s), static_cast<unsigned char*>(s) + 32));
  heap.free(s);

  EXPECT_THROW(SecureHeap(0), std::invalid_argument);
}

TEST(SecureHeapClass, BlockClassKeepsItsMasks) {
  EXPECT_EQ(0xF7u, TestHeap::block_class(0xFF));  // bit 3 alone is cleared below 0x100
  EXPECT_EQ(0x8u & 0xFFFFFFF7u, TestHeap::block_class(0x8));
  EXPECT_EQ(0x170u, TestHeap::block_class(0x1FF));  // bits 0 to 3 and 7
  EXPECT_EQ(0x1200u, TestHeap::block_class(0x12FF));
  EXPECT_EQ(0x12000u, TestHeap::block_class(0x12FFF));
  EXPECT_EQ(0x120000u, TestHeap::block_class(0x12FFFF));
  EXPECT_EQ(0x1200000u, TestHeap::block_class(0x12FFFFF));
  EXPECT_EQ(0x12000000u, TestHeap::block_class(0x12FFFFFF));
}

TEST(SecureHeapSizeSet, NextFindsTheFirstMemberAcrossWordsAndSummaries) {
  internal::FreeSizeSet<8192> set;
  EXPECT_EQ(8192u, set.next(0));
  for (std::size_t slot : {0u, 63u, 64u, 4095u, 4096u, 8191u}) set.insert(slot);
  EXPECT_EQ(0u, set.next(0));
  EXPECT_EQ(63u, set.next(1));
  EXPECT_EQ(64u, set.next(64));
  EXPECT_EQ(4095u, set.next(65));
  EXPECT_EQ(4096u, set.next(4096));
  EXPECT_EQ(8191u, set.next(4097));
  EXPECT_EQ(8192u, set.next(8192));
  set.erase(4095);
  EXPECT_EQ(4096u, set.next(65));
  set.erase(4096);
  set.erase(8191);
  EXPECT_EQ(8192u, set.next(65));
  EXPECT_TRUE(set.consistent());
}

// ---- locked pages ----

TEST(SecureHeapPages, RegionsAreRecordedLockedAndLeftOutOfCoreDumps) {
  char* region = page_allocator::malloc(10000);
  ASSERT_NE(nullptr, region);
  EXPECT_EQ(10000u, page_allocator::pages.at(region));
  const std::string flags = mappingFlags(region);
  EXPECT_THAT(flags, HasSubstr(" dd "));
  // Tests run with the privilege or the limit to lock this much.
  EXPECT_TRUE(page_allocator::is_locked(region));
  EXPECT_THAT(flags, HasSubstr(" lo "));
  std::memset(region, 0x33, 10000);

  page_allocator::free(region + 1);  // not a region: nothing happens
  page_allocator::free(nullptr);
  EXPECT_EQ(1u, page_allocator::pages.count(region));
  page_allocator::free(region);
  EXPECT_EQ(0u, page_allocator::pages.count(region));
  EXPECT_EQ("", mappingFlags(region));
}

// Takes CAP_IPC_LOCK away, with which mlock ignores the limit (tests may run as root).
bool dropLockCapability() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  if (::syscall(SYS_capget, &header, data) != 0) return false;
  const unsigned bit = 1u << (CAP_IPC_LOCK % 32);
  data[CAP_IPC_LOCK / 32].effective &= ~bit;
  data[CAP_IPC_LOCK / 32].permitted &= ~bit;
  data[CAP_IPC_LOCK / 32].inheritable &= ~bit;
  return ::syscall(SYS_capset, &header, data) == 0;
}

rlim_t softLockLimit() {
  rlimit limit{};
  ::getrlimit(RLIMIT_MEMLOCK, &limit);
  return limit.rlim_cur;
}

// The process's locked memory in bytes, from /proc/self/status.
std::size_t lockedBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.compare(0, 6, "VmLck:") == 0) return std::stoul(line.substr(6)) * 1024;
  return 0;
}

std::vector<void*> allocateOverPages(std::size_t count) {
  std::vector<void*> blocks;
  for (std::size_t i = 0; i < count; ++i) {
    blocks.push_back(crypto::malloc(100000));
    std::memset(blocks.back(), 0x42, 100000);
    blocks.push_back(crypto::malloc(24));
  }
  return blocks;
}

TEST(SecureHeapLockChild, DISABLED_NoLockableMemory) {
  const rlimit none{0, 0};
  ASSERT_EQ(0, ::setrlimit(RLIMIT_MEMLOCK, &none));
  ASSERT_TRUE(dropLockCapability());
  LogCapture log;
  std::vector<void*> blocks = allocateOverPages(3);
  EXPECT_FALSE(SecureHeap::instance().all_pages_locked());
  EXPECT_EQ(0u, lockedBytes());
  const std::string flags = mappingFlags(blocks[0]);
  EXPECT_THAT(flags, HasSubstr(" dd "));
  EXPECT_THAT(flags, Not(HasSubstr(" lo ")));
  const auto warnings = log.linesWith("memory could not be locked");
  ASSERT_EQ(1u, warnings.size());
  EXPECT_THAT(warnings[0], HasSubstr("WARNING  [zq::crypto::page_allocator::malloc]"));
  for (void* p : blocks) crypto::free(p);
  EXPECT_EQ(0u, SecureHeap::instance().total_size());
}

TEST(SecureHeapLockChild, DISABLED_LimitRaisedByWhatWasRefused) {
  rlimit limit{};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_MEMLOCK, &limit));
  limit.rlim_cur = 0;
  if (limit.rlim_max < (4u << 20)) GTEST_SKIP() << "hard limit too low: " << limit.rlim_max;
  ASSERT_EQ(0, ::setrlimit(RLIMIT_MEMLOCK, &limit));
  ASSERT_TRUE(dropLockCapability());
  LogCapture log;
  std::vector<void*> blocks = allocateOverPages(3);
  EXPECT_TRUE(SecureHeap::instance().all_pages_locked());
  EXPECT_THAT(mappingFlags(blocks[0]), HasSubstr(" lo "));
  EXPECT_TRUE(log.linesWith("memory could not be locked").empty());
  // The soft limit grew by exactly each refused region: it now equals what is locked.
  EXPECT_GT(lockedBytes(), 3u * 100000);
  EXPECT_EQ(lockedBytes(), softLockLimit());
  for (void* p : blocks) crypto::free(p);
}

TEST(SecureHeapLocking, WithoutLockableMemoryBlocksStillComeAndTheHeapSaysSo) {
  for (const char* name : {"NoLockableMemory", "LimitRaisedByWhatWasRefused"}) {
    const ChildResult child =
        runChild({selfExecutable(), std::string("--gtest_filter=SecureHeapLockChild.DISABLED_") + name,
                  "--gtest_also_run_disabled_tests"});
    EXPECT_TRUE(child.exited && child.exitCode == 0) << name << ": signal " << child.signal << "\n" << child.output;
    EXPECT_THAT(child.output, HasSubstr("[  PASSED  ] 1 test")) << name;
  }
}

// ---- threads ----

TEST(SecureHeapThreads, ConcurrentCallersKeepTheirOwnBlocks) {
  TestHeap heap;
  constexpr int kThreads = 4;
  constexpr int kSteps = 4000;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  std::atomic<int> damaged{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&heap, &damaged, t] {
      std::mt19937 rng(t);
      std::vector<std::pair<unsigned char*, std::size_t>> mine;
      const auto mark = static_cast<unsigned char>(0x10 + t);
      const auto intact = [&](const std::pair<unsigned char*, std::size_t>& b) {
        return std::all_of(b.first, b.first + b.second, [mark](unsigned char c) { return c == mark; });
      };
      for (int step = 0; step < kSteps; ++step) {
        const std::size_t size = rng() % 3000;
        if (mine.size() < 50 && (mine.empty() || rng() % 2 == 0)) {
          auto* p = static_cast<unsigned char*>(heap.malloc(size));
          std::memset(p, mark, size);
          mine.emplace_back(p, size);
        } else {
          auto& b = mine[rng() % mine.size()];
          if (!intact(b)) ++damaged;
          if (rng() % 3 == 0) {
            b.first = static_cast<unsigned char*>(heap.realloc(b.first, size));
            if (size > b.second) std::memset(b.first + b.second, mark, size - b.second);
            b.second = size;
          } else {
            heap.free(b.first);
            b = mine.back();
            mine.pop_back();
          }
        }
        if (step % 500 == 0) heap.allocated_size();
      }
      for (auto& b : mine) {
        if (!intact(b)) ++damaged;
        heap.free(b.first);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, damaged.load());
  EXPECT_TRUE(heap.heapWalk());
  EXPECT_EQ(0u, heap.total_size());
}

// ---- a long random run against a model ----

// What the test knows of each live block: the bytes it wrote are a stretch of the tape, starting
// at the block's own offset.
struct LiveBlock {
  unsigned char* p;
  std::size_t written;
  std::size_t capacity;
  std::size_t offset;
};

constexpr std::size_t kLargestRequest = 150000;
constexpr std::size_t kOffsets = 65536;

// Random bytes that the blocks' contents are cut from; copied and compared a block at a time,
// which the sanitizers check per call rather than per byte.
const unsigned char* tape() {
  static const std::vector<unsigned char> bytes = [] {
    std::vector<unsigned char> t(kLargestRequest + kOffsets);
    std::mt19937 gen(99);
    for (auto& b : t) b = static_cast<unsigned char>(gen());
    return t;
  }();
  return bytes.data();
}

void writePattern(const LiveBlock& b, std::size_t from) {
  std::memcpy(b.p + from, tape() + b.offset + from, b.written - from);
}

// The first index where the block differs from its pattern, within [from, to), or `to`.
std::size_t firstDamage(const LiveBlock& b, std::size_t from, std::size_t to) {
  const unsigned char* expected = tape() + b.offset;
  if (std::memcmp(b.p + from, expected + from, to - from) == 0) return to;
  for (std::size_t i = from;; ++i)
    if (b.p[i] != expected[i]) return i;
}

std::size_t neededFor(std::size_t size) { return std::max<std::size_t>(16, (size + 7) / 8 * 8); }

class RandomRun {
 public:
  explicit RandomRun(TestHeap& heap) : m_heap(heap), m_rng(20240613) {}

  std::size_t randomSize() {
    const unsigned kind = m_rng() % 100;
    if (kind < 70) return m_rng() % 257;
    if (kind < 97) return m_rng() % 6000;
    return 60000 + m_rng() % (kLargestRequest - 60000);  // around and over one granule
  }

  void allocate() {
    LiveBlock b{nullptr, randomSize(), 0, m_rng() % kOffsets};
    b.p = static_cast<unsigned char*>(m_heap.malloc(b.written));
    b.capacity = m_heap.msize(b.p);
    expectFits(b, neededFor(b.written));
    writePattern(b, 0);
    m_live.push_back(b);
  }

  void release(std::size_t index) {
    const LiveBlock b = m_live[index];
    ASSERT_EQ(b.written, firstDamage(b, 0, b.written)) << "block " << static_cast<void*>(b.p);
    m_heap.free(b.p);
    m_live[index] = m_live.back();
    m_live.pop_back();
  }

  void resize(std::size_t index) {
    LiveBlock& b = m_live[index];
    const std::size_t size = randomSize();
    const std::size_t need = neededFor(size);
    const std::size_t kept = std::min(size, b.written);
    ASSERT_EQ(b.written, firstDamage(b, 0, b.written));
    auto* p = static_cast<unsigned char*>(m_heap.realloc(b.p, size));
    if (need <= b.capacity) {
      EXPECT_EQ(b.p, p) << "shrinking moved the block";
      EXPECT_EQ(need + 24 >= b.capacity + 8 ? b.capacity : need, m_heap.msize(p));
    }
    b.p = p;
    b.written = size;
    b.capacity = m_heap.msize(p);
    ASSERT_EQ(kept, firstDamage(b, 0, kept)) << "content lost by realloc to " << size;
    expectFits(b, need);
    writePattern(b, kept);
  }

  void step(int n) {
    const unsigned choice = m_rng() % 100;
    const std::size_t live = m_live.size();
    if (live == 0 || (live < 400 && choice < 40))
      allocate();
    else if (choice < 80 || live >= 400)
      release(m_rng() % live);
    else
      resize(m_rng() % live);
    check(n);
  }

  void check(int n) {
    std::size_t sum = 0;
    for (const LiveBlock& b : m_live) {
      sum += b.capacity;
      // Headers and links of neighbours would land at either end of a block.
      const std::size_t head = std::min<std::size_t>(16, b.written);
      const std::size_t tail = b.written - std::min<std::size_t>(8, b.written);
      if (m_heap.msize(b.p) != b.capacity || firstDamage(b, 0, head) != head ||
          firstDamage(b, tail, b.written) != b.written) {
        FAIL() << "step " << n << ": block " << static_cast<void*>(b.p) << " of " << b.written << " bytes changed";
      }
    }
    ASSERT_EQ(sum, m_heap.allocated_size()) << "step " << n;
    const std::size_t total = m_heap.total_size();
    ASSERT_EQ(0u, total % kGranularity);
    ASSERT_EQ(m_live.empty(), total == 0) << "step " << n;
    ASSERT_GE(total, sum + 8 * m_live.size());
    ASSERT_TRUE(m_heap.heapWalk()) << "step " << n;
    if (n % 1000 == 0) {
      for (const LiveBlock& b : m_live) ASSERT_EQ(b.written, firstDamage(b, 0, b.written)) << "step " << n;
    }
  }

  void releaseAll() {
    while (!m_live.empty()) release(m_live.size() - 1);
  }

 private:
  void expectFits(const LiveBlock& b, std::size_t need) {
    ASSERT_EQ(0u, reinterpret_cast<std::uintptr_t>(b.p) % 8);
    ASSERT_GE(b.capacity, need);
    ASSERT_LE(b.capacity, need + 24) << "more slack than a tail too small to cut";
    const auto begin = reinterpret_cast<std::uintptr_t>(b.p) - 8;
    const auto end = begin + b.capacity + 8;
    for (const LiveBlock& other : m_live) {
      if (other.p == b.p) continue;
      const auto otherBegin = reinterpret_cast<std::uintptr_t>(other.p) - 8;
      ASSERT_TRUE(end <= otherBegin || otherBegin + other.capacity + 8 <= begin) << "blocks overlap";
    }
  }

  TestHeap& m_heap;
  std::mt19937 m_rng;
  std::vector<LiveBlock> m_live;
};

TEST_F(SecureHeapTest, HundredThousandRandomStepsMatchTheModel) {
  RandomRun run(heap);
  for (int n = 1; n <= 100000; ++n) {
    ASSERT_NO_FATAL_FAILURE(run.step(n));
    if (HasFailure()) return run.releaseAll();
  }
  run.releaseAll();
}

}  // namespace
}  // namespace zq::test
