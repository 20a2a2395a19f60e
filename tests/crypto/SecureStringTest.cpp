#include <zq/crypto/MessageDigest.h>
#include <zq/crypto/SecureString.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

// ---- a look at memory as it is freed ----
//
// While a scan is on, every block handed back to the heap is searched for a marker text, just
// before the heap takes it. Under a sanitizer its own free hook does this; otherwise this
// program's `free` takes precedence over the C library's and passes the block on.

namespace {

std::atomic<bool> g_scanning{false};
std::atomic<int> g_blocksWithMarker{0};
const char kMarker[] = "\x01MARKER-of-a-secret\x02";

void inspect(const void* block, std::size_t size) {
  if (block == nullptr || !g_scanning.load()) return;
  const std::size_t markerSize = sizeof(kMarker) - 1;
  const auto* bytes = static_cast<const volatile unsigned char*>(block);
  for (std::size_t i = 0; i + markerSize <= size; ++i) {
    std::size_t k = 0;
    while (k < markerSize && bytes[i + k] == static_cast<unsigned char>(kMarker[k])) ++k;
    if (k == markerSize) {
      g_blocksWithMarker.fetch_add(1);
      return;
    }
  }
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZQ_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZQ_TEST_SANITIZED 1
#endif
#endif

#ifdef ZQ_TEST_SANITIZED
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                                         void (*)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void*);
namespace {
void onFree(const volatile void* p) {
  if (p != nullptr && g_scanning.load()) inspect(const_cast<const void*>(p), __sanitizer_get_allocated_size(p));
}
void onMalloc(const volatile void*, std::size_t) {}
const int g_hooked = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);  // both hooks, or none is taken
}  // namespace
#else
#include <malloc.h>
extern "C" void __libc_free(void*);  // NOLINT(bugprone-reserved-identifier): the C library's own free
extern "C" void free(void* p) {
  if (p != nullptr && g_scanning.load()) inspect(p, malloc_usable_size(p));
  __libc_free(p);
}
#endif

namespace {

using zq::crypto::MessageDigest;
using zq::crypto::secure_bytes;
using zq::crypto::secure_string;
using zq::crypto::zeroOut;

// Counts the freed blocks that still hold the marker while it lives.
class FreedMemoryScan {
 public:
  FreedMemoryScan() {
    g_blocksWithMarker = 0;
    g_scanning = true;
  }
  ~FreedMemoryScan() { g_scanning = false; }
  int blocksWithMarker() const { return g_blocksWithMarker.load(); }
};

// A secret well past the small-buffer size, so that it lives on the heap.
secure_string secret() { return secure_string(kMarker) + std::string(40, 's'); }

TEST(SecureString, TheScanSeesPlainStrings) {
  FreedMemoryScan scan;
  { std::string plain = std::string(kMarker) + std::string(40, 'p'); }
  EXPECT_GE(scan.blocksWithMarker(), 1) << "a plain string leaves its text behind; the scan must see it";
}

TEST(SecureString, FreedBuffersHoldNoPlainByte) {
  FreedMemoryScan scan;
  { secure_string s = secret(); }
  {
    secure_string s = secret();
    s.reserve(4 * s.capacity());  // growing releases the old buffer
    s += std::string(300, 'g');
    EXPECT_EQ(0, std::memcmp(s.data(), kMarker, sizeof(kMarker) - 1));
    secure_string other = secret();
    s = std::move(other);  // assignment over a string releases its buffer
    s = secure_string(200, 'x');
  }
  {
    secure_string s = secret();
    s.resize(3);
    s.shrink_to_fit();  // into the small buffer: the heap buffer goes back
  }
  {
    secure_bytes v(kMarker, kMarker + sizeof(kMarker));
    v.resize(1000);  // elements are moved, the old storage wiped
  }
  EXPECT_EQ(0, scan.blocksWithMarker());
}

TEST(SecureString, ConcatenationWipesItsParameter) {
  FreedMemoryScan scan;
  secure_string joined;
  {
    secure_string a = secret();
    joined = a + std::string(100, 'b');  // `a` is copied in, grows there, and is dropped
    ASSERT_EQ(a.size() + 100, joined.size());
    EXPECT_EQ(0, joined.compare(0, a.size(), a));
    EXPECT_EQ(std::string::npos, joined.find_first_not_of('b', a.size()));
  }
  {
    secure_string shortOne("abc");
    EXPECT_EQ("abcdef", std::string((shortOne + std::string("def")).c_str()));
  }
  joined.clear();
  joined.shrink_to_fit();
  EXPECT_EQ(0, scan.blocksWithMarker());
}

// Keys and pass phrases leave nothing behind, in this library's strings or in OpenSSL's
// contexts. (A PBKDF2 salt is public: OpenSSL frees its own copy of it unwiped.)
TEST(SecureString, HashingLeavesNoKeyBehind) {
  FreedMemoryScan scan;
  EXPECT_FALSE(MessageDigest::crypt(secret(), secure_string("$5$rounds=1000$salt")).empty());
  EXPECT_FALSE(MessageDigest::crypt(secure_string("key"), secret()).empty());
  EXPECT_EQ(64u, MessageDigest::passwordHash(secret(), secure_string("salt"), 2).size());
  {
    MessageDigest md(MessageDigest::SHA512);
    const secure_string key = secret();
    md.append(key.data(), key.size());
    MessageDigest copy(md);
    EXPECT_EQ(64u, md.digest().size());
  }
  EXPECT_EQ(0, scan.blocksWithMarker());
}

TEST(SecureString, AllocatorContract) {
  zq::crypto::secure_allocator<std::uint64_t> words;
  EXPECT_TRUE(words == zq::crypto::secure_allocator<char>());
  EXPECT_THROW(words.allocate(static_cast<std::size_t>(-1) / 4), std::bad_array_new_length);
#ifndef ZQ_TEST_SANITIZED  // a sanitizer's heap stops the program on a request it can't serve
  EXPECT_THROW(words.allocate(static_cast<std::size_t>(-1) / 16), std::bad_alloc);
#endif
  unsigned char block[24];
  std::memset(block, 0xA5, sizeof(block));
  zeroOut(block + 4, 16);
  EXPECT_EQ(0xA5, block[3]);
  EXPECT_EQ(0, block[4]);
  EXPECT_EQ(0, block[19]);
  EXPECT_EQ(0xA5, block[20]);
  zeroOut(nullptr, 10);  // nothing to do
}

}  // namespace
