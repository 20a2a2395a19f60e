#include <zq/crypto/SecureHeap.h>

#include <zq/crypto/internal/SecureHeapSets.h>
#include <zq/foundation/Log.h>
#include <zq/platform/LockedPages.h>
#include <zq/platform/SharedLibrary.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <set>
#include <stdexcept>

#include <string.h>

namespace zq {
namespace crypto {

namespace {

constexpr std::uint32_t kInUse = 1;
constexpr std::uint32_t kLastInPage = 2;
constexpr std::uint32_t kFlags = kInUse | kLastInPage;
constexpr std::size_t kHeader = 8;
constexpr std::size_t kMinPayload = 16;
// The smallest block that can be free: a header and the two links.
constexpr std::size_t kMinBlock = 24;
// malloc and growing leave smaller tails as slack; shrinking cuts any tail that can be free.
constexpr std::size_t kMinTailToCut = 32;
// Capacities below this have a slot of their own in the shortcuts.
constexpr std::size_t kSmallKeys = 65536;

const char* const kUnlockedWarning =
    "memory could not be locked; secure pages stay out of core dumps and are wiped, but may be swapped out: ";
const char* const kForeignPointer = "not a block in use of this heap: ";

// The wipe of freed blocks and released pages, at memset's speed; explicit_bzero is never
// dropped as a dead store, even just before munmap.
void wipe(void* p, std::size_t size) { ::explicit_bzero(p, size); }

// Regions that had to stay unlocked. Rarely anything in it; never destroyed, as `pages`.
std::set<char const*>& unlockedRegions() {
  static std::set<char const*>* const regions = new std::set<char const*>();
  return *regions;
}
std::atomic<bool> g_warnedUnlocked{false};

// The payload a request needs: at least 16 bytes, a multiple of 8. No page can be larger than
// its 32-bit size word, so neither can a request.
std::size_t neededPayload(std::size_t size) {
  if (size > UINT32_MAX) throw std::bad_alloc();
  return size < kMinPayload ? kMinPayload : (size + 7) & ~std::size_t(7);
}

template <class B>
bool isFree(const B* b) {
  return (b->prev_and_flags & kInUse) == 0;
}

template <class B>
std::uint32_t distanceBack(const B* b) {
  return b->prev_and_flags & ~kFlags;
}

// The next block of the page, or null for the last one.
template <class B>
B* successor(B* b) {
  if (b->prev_and_flags & kLastInPage) return nullptr;
  return reinterpret_cast<B*>(reinterpret_cast<char*>(b) + b->size);
}
template <class B>
const B* successor(const B* b) {
  return successor(const_cast<B*>(b));
}

// The preceding block of the page, or null for the first one.
template <class B>
B* predecessor(B* b) {
  const std::uint32_t distance = distanceBack(b);
  return distance == 0 ? nullptr : reinterpret_cast<B*>(reinterpret_cast<char*>(b) - distance);
}

template <class B>
void setDistanceBack(B* b, std::uint32_t distance) {
  b->prev_and_flags = distance | (b->prev_and_flags & kFlags);
}

void reportForeign(const char* function, const void* p) { ZQ_LOG(Log::Critical, function, kForeignPointer << p); }

std::size_t checkedGranularity(std::size_t granularity) {
  if (granularity == 0) throw std::invalid_argument("zq::crypto::SecureHeap: a granularity of 0 bytes");
  return granularity;
}

}  // namespace

struct SecureHeap::Shortcuts {
  static constexpr std::size_t kSlots = kSmallKeys / 8;

  // The keys of free_blocks below 64 KiB, one slot per multiple of 8: the mapped value of each
  // key's entry (null until the key is made), and which lists have blocks. Best fit and the list
  // updates of the common sizes find their list here in a few steps instead of a walk down the
  // tree, which costs a mispredicted branch a level.
  FreeBlockInfo** heads[kSlots] = {};
  internal::FreeSizeSet<kSlots> filled;
  // The system pages of heap_pages, so that free can tell its pointers from others at once.
  internal::OwnedPageSet pages{platform::pageSize()};
};

// ---- page_allocator ----

std::map<char const*, std::size_t>& page_allocator::pages = *new std::map<char const*, std::size_t>();

char* page_allocator::malloc(size_type size) {
  char* region = static_cast<char*>(platform::mapPages(size));
  if (region == nullptr) throw std::bad_alloc();
  try {
    if (const int refused = platform::lockPages(region, size)) {
      unlockedRegions().insert(region);
      if (!g_warnedUnlocked.exchange(true))
        ZQ_LOG(Log::Warning, "zq::crypto::page_allocator::malloc", kUnlockedWarning << platform::errorText(refused));
    }
    pages[region] = size;
  } catch (...) {
    unlockedRegions().erase(region);
    platform::unmapPages(region, size);
    throw;
  }
  return region;
}

void page_allocator::free(char const* p) {
  const auto entry = pages.find(p);
  if (entry != pages.end()) free(p, entry->second);
}

void page_allocator::free(char const* p, size_type size) {
  if (p == nullptr) return;
  char* region = const_cast<char*>(p);
  wipe(region, size);
  pages.erase(p);
  unlockedRegions().erase(p);
  platform::unmapPages(region, size);
}

page_allocator::size_type page_allocator::page_size() { return platform::pageSize(); }

bool page_allocator::is_locked(char const* p) { return unlockedRegions().count(p) == 0; }

// ---- SecureHeap ----

// Building free_blocks builds its node allocator, whose constructor touches the singleton pool
// (is_from(0)), so the pool exists before the first node is needed.
SecureHeap::SecureHeap(std::size_t granularity)
    : page_granularity(checkedGranularity(granularity)), allocated(0), shortcuts(new Shortcuts()) {}

SecureHeap::~SecureHeap() { delete shortcuts; }

SecureHeap& SecureHeap::instance() {
  static SecureHeap* const heap = new SecureHeap(16 * page_allocator::page_size());
  return *heap;
}

void* SecureHeap::malloc(std::size_t size) {
  const std::size_t need = neededPayload(size);
  std::unique_lock<std::shared_mutex> guard(lock);
  return malloc_noLock(need);
}

void* SecureHeap::malloc_noLock(std::size_t need) {
  BlockInfo* b;
  if (FreeBlockInfo** list = fit_noLock(need)) {
    // remove_free of the head, with its list at hand.
    FreeBlockInfo* head = *list;
    __builtin_prefetch(reinterpret_cast<char*>(head) + head->size, 1);  // the successor, for the cut
    head->prev_and_flags |= kInUse;
    *list = head->next;
    if (head->next)
      head->next->prev = nullptr;
    else
      emptied_noLock(head->size - kHeader);
    b = head;
  } else {
    std::uint64_t pageSize = (need + kHeader + page_granularity - 1) / page_granularity * page_granularity;
    // Whole multiples of 8 for every block, hence for every key, whatever the granularity.
    while (pageSize % 8 != 0) pageSize += page_granularity;
    if (pageSize > UINT32_MAX) throw std::bad_alloc();
    b = alloc_page(pageSize);
  }
  if (rest_size_noLock(b, need) >= kMinTailToCut) give_back_tail(b, split_merge_noLock(b, need));
  b->prev_and_flags |= kInUse;
  allocated += b->size - kHeader;
  return payload(b);
}

void SecureHeap::give_back_tail(BlockInfo* b, FreeBlockInfo* tail) {
  try {
    insert_free_noLock(tail);
  } catch (const std::bad_alloc&) {
    merge_noLock(b);  // the index can't grow: the tail stays with `b` as slack
  }
}

void SecureHeap::free(void* p) {
  if (p == nullptr) return;
  std::unique_lock<std::shared_mutex> guard(lock);
  BlockInfo* b = block(p);
  if (!in_use_here_noLock(b)) return reportForeign("zq::crypto::SecureHeap::free", p);
  free_noLock(b);
}

void SecureHeap::free_noLock(BlockInfo* b) {
  const std::size_t capacity = b->size - kHeader;
  BlockInfo* next = successor(b);
  // The neighbours' headers come in while the payload is wiped.
  if (next) __builtin_prefetch(next, 1);
  if (BlockInfo* before = predecessor(b)) __builtin_prefetch(before, 1);
  wipe(payload(b), capacity);
  allocated -= capacity;
  if (next && isFree(next)) {
    remove_free_noLock(static_cast<FreeBlockInfo*>(next));
    merge_noLock(b);
  }
  BlockInfo* before = predecessor(b);
  if (before && isFree(before)) {
    remove_free_noLock(static_cast<FreeBlockInfo*>(before));
    merge_noLock(before);
    b = before;
  }
  if ((b->prev_and_flags & ~kInUse) == kLastInPage) {  // the whole page
    b->prev_and_flags &= ~kInUse;
    free_page(b);
    return;
  }
  try {
    insert_free_noLock(static_cast<FreeBlockInfo*>(b));
  } catch (const std::bad_alloc&) {
    // The index can't grow: the block stays marked in use, wiped and lost to this heap, but no
    // neighbour will take it for free.
  }
}

void* SecureHeap::realloc(void* p, std::size_t size) {
  if (p == nullptr) return malloc(size);
  const std::size_t need = neededPayload(size);
  std::unique_lock<std::shared_mutex> guard(lock);
  BlockInfo* b = block(p);
  if (!in_use_here_noLock(b)) {
    reportForeign("zq::crypto::SecureHeap::realloc", p);
    return nullptr;
  }
  const std::size_t total = b->size;
  const std::size_t capacity = total - kHeader;
  if (need <= capacity) {
    if (need + kMinBlock >= total) return p;  // the tail could not be a free block
    wipe(static_cast<char*>(p) + need, capacity - need);
    give_back_tail(b, split_merge_noLock(b, need));
  } else {
    BlockInfo* next = successor(b);
    if (next && isFree(next) && need + 2 * kHeader <= total + next->size) {
      // The gained memory was free, hence wiped: nothing to wipe here.
      remove_free_noLock(static_cast<FreeBlockInfo*>(next));
      merge_noLock(b);
      if (rest_size_noLock(b, need) >= kMinTailToCut) give_back_tail(b, split_noLock(b, need));
    } else {
      void* moved = malloc_noLock(need);
      std::memcpy(moved, p, capacity);
      free_noLock(b);
      return moved;
    }
  }
  allocated = allocated - capacity + (b->size - kHeader);
  return p;
}

std::size_t SecureHeap::msize(void* p) const { return p == nullptr ? 0 : block(p)->size - kHeader; }

std::size_t SecureHeap::allocated_size() const {
  std::shared_lock<std::shared_mutex> guard(lock);
  return allocated;
}

std::size_t SecureHeap::total_size() const {
  std::shared_lock<std::shared_mutex> guard(lock);
  std::size_t total = 0;
  for (const auto& page : heap_pages) total += page.second;
  return total;
}

bool SecureHeap::heapWalk() const {
  std::shared_lock<std::shared_mutex> guard(lock);
  std::size_t freeBlocks = 0;
  std::uint64_t inUse = 0;
  for (const auto& page : heap_pages) {
    const char* const end = reinterpret_cast<const char*>(page.first) + page.second;
    const BlockInfo* b = page.first;
    std::uint32_t sizeBefore = 0;
    bool freeBefore = false;
    for (;;) {
      const char* const blockEnd = reinterpret_cast<const char*>(b) + b->size;
      if (distanceBack(b) != sizeBefore || b->size < kMinBlock || blockEnd > end) return false;
      if (isFree(b) && freeBefore) return false;  // free neighbours are always joined
      if (isFree(b))
        ++freeBlocks;
      else
        inUse += b->size - kHeader;
      if (b->prev_and_flags & kLastInPage) {
        if (blockEnd != end) return false;
        break;
      }
      sizeBefore = b->size;
      freeBefore = isFree(b);
      b = successor(b);
    }
  }
  if (inUse != allocated) return false;

  // Every list with blocks, each block once: the smaller keys by their bits, the others in the tree.
  // Empty lists of kept keys hold nothing to check.
  std::size_t indexed = 0;
  const auto walkList = [&](std::uint64_t key, const FreeBlockInfo* head) {
    const FreeBlockInfo* before = nullptr;
    if (head == nullptr) return false;
    for (const FreeBlockInfo* f = head; f != nullptr; before = f, f = f->next) {
      if (++indexed > freeBlocks) return false;  // also ends a cycle
      if (f->prev != before || !isFree(f) || f->size - kHeader != key) return false;
      if (page_of_noLock(f) == heap_pages.end()) return false;
    }
    return true;
  };
  for (std::size_t slot = shortcuts->filled.next(0); slot < Shortcuts::kSlots;
       slot = shortcuts->filled.next(slot + 1)) {
    const auto entry = free_blocks.find(slot * 8);
    if (entry == free_blocks.end() || shortcuts->heads[slot] != &entry->second) return false;
    if (!walkList(entry->first, entry->second)) return false;
  }
  for (auto entry = free_blocks.lower_bound(kSmallKeys); entry != free_blocks.end(); ++entry)
    if (entry->first % 8 != 0 || !walkList(entry->first, entry->second)) return false;
  return indexed == freeBlocks && shortcuts->filled.consistent();
}

bool SecureHeap::all_pages_locked() const {
  std::shared_lock<std::shared_mutex> guard(lock);
  for (const auto& page : heap_pages)
    if (!page_allocator::is_locked(reinterpret_cast<char const*>(page.first))) return false;
  return true;
}

unsigned int SecureHeap::block_class(std::size_t size) {
  // The two smallest masks are as they have always been: they clear bits 0 to 3 and 7, and bit 3 alone.
  static const struct {
    std::size_t atLeast;
    std::uint32_t mask;
  } kClasses[] = {{0x10000000, 0xFF000000}, {0x1000000, 0xFFF00000}, {0x100000, 0xFFFF0000},
                  {0x10000, 0xFFFFF000},    {0x1000, 0xFFFFFF00},    {0x100, 0xFFFFFF70}};
  const auto value = static_cast<std::uint32_t>(size);
  for (const auto& c : kClasses)
    if (size >= c.atLeast) return value & c.mask;
  return value & 0xFFFFFFF7;
}

SecureHeap::FreeBlockInfo* SecureHeap::best_fit(std::size_t size) const {
  FreeBlockInfo** list = const_cast<SecureHeap*>(this)->fit_noLock(size);
  return list ? *list : nullptr;
}

SecureHeap::FreeBlockInfo** SecureHeap::fit_noLock(std::size_t size) {
  if (size < kSmallKeys) {
    const std::size_t slot = shortcuts->filled.next((size + 7) / 8);
    if (slot < Shortcuts::kSlots) return shortcuts->heads[slot];
    size = kSmallKeys;
  }
  const FreeIndex::iterator fit = free_blocks.lower_bound(size);
  return fit == free_blocks.end() ? nullptr : &fit->second;
}

SecureHeap::FreeBlockInfo*& SecureHeap::list_noLock(std::size_t key) {
  if (key >= kSmallKeys) return free_blocks[key];
  // Every key is a multiple of 8: pages are, and so is every cut.
  FreeBlockInfo**& head = shortcuts->heads[key / 8];
  if (head == nullptr) head = &free_blocks.emplace(key, nullptr).first->second;
  return *head;
}

void SecureHeap::emptied_noLock(std::size_t key) {
  if (key < kSmallKeys)
    shortcuts->filled.erase(key / 8);
  else
    free_blocks.erase(key);
}

SecureHeap::BlockInfo* SecureHeap::alloc_page(std::size_t size) {
  char* region = page_allocator::malloc(size);
  BlockInfo* b = reinterpret_cast<BlockInfo*>(region);
  b->prev_and_flags = kLastInPage;
  b->size = static_cast<std::uint32_t>(size);
  try {
    heap_pages[b] = size;
    try {
      shortcuts->pages.mark(reinterpret_cast<std::uintptr_t>(region), size, true);
    } catch (...) {
      heap_pages.erase(b);
      throw;
    }
  } catch (...) {
    page_allocator::free(region, size);
    throw;
  }
  return b;
}

void SecureHeap::free_page(BlockInfo* b) {
  shortcuts->pages.mark(reinterpret_cast<std::uintptr_t>(b), b->size, false);
  heap_pages.erase(b);
  page_allocator::free(reinterpret_cast<char const*>(b), b->size);
}

void SecureHeap::insert_free_noLock(FreeBlockInfo* b) {
  const std::size_t key = b->size - kHeader;
  FreeBlockInfo*& head = list_noLock(key);  // the one step that can throw
  b->prev_and_flags &= ~kInUse;
  b->next = head;
  b->prev = nullptr;
  if (head)
    head->prev = b;
  else if (key < kSmallKeys)
    shortcuts->filled.insert(key / 8);
  head = b;
}

void SecureHeap::remove_free_noLock(FreeBlockInfo* b) {
  b->prev_and_flags |= kInUse;
  if (b->next) b->next->prev = b->prev;
  if (b->prev) {
    b->prev->next = b->next;
    return;
  }
  const std::size_t key = b->size - kHeader;
  if (key < kSmallKeys) {
    *shortcuts->heads[key / 8] = b->next;
    if (!b->next) emptied_noLock(key);
    return;
  }
  const FreeIndex::iterator entry = free_blocks.find(key);
  if (b->next)
    entry->second = b->next;
  else
    free_blocks.erase(entry);
}

std::size_t SecureHeap::rest_size_noLock(BlockInfo* b, std::size_t size) const {
  if (size > b->size - kHeader) return 0;
  std::size_t rest = b->size - size - kHeader;
  const BlockInfo* next = successor(b);
  if (next && isFree(next)) rest += next->size;
  return rest;
}

SecureHeap::FreeBlockInfo* SecureHeap::split_noLock(BlockInfo* b, std::size_t size) {
  const auto kept = static_cast<std::uint32_t>(size + kHeader);
  auto* tail = reinterpret_cast<FreeBlockInfo*>(reinterpret_cast<char*>(b) + kept);
  BlockInfo* next = successor(b);
  tail->size = b->size - kept;
  tail->prev_and_flags = kept & ~kFlags;
  if (next)
    setDistanceBack(next, tail->size);
  else
    tail->prev_and_flags |= kLastInPage;
  b->prev_and_flags &= ~kLastInPage;
  b->size = kept;
  return tail;
}

SecureHeap::FreeBlockInfo* SecureHeap::split_merge_noLock(BlockInfo* b, std::size_t size) {
  FreeBlockInfo* tail = split_noLock(b, size);
  BlockInfo* next = successor(tail);
  if (next && isFree(next)) {
    remove_free_noLock(static_cast<FreeBlockInfo*>(next));
    merge_noLock(tail);
  }
  return tail;
}

void SecureHeap::merge_noLock(BlockInfo* b) {
  BlockInfo* gone = successor(b);
  b->size += gone->size;
  if (gone->prev_and_flags & kLastInPage)
    b->prev_and_flags |= kLastInPage;
  else
    setDistanceBack(successor(b), b->size);
  // A header left behind could pass for a block in use, and a second free of it would be believed.
  std::memset(gone, 0, sizeof(FreeBlockInfo));
}

bool SecureHeap::in_use_here_noLock(BlockInfo const* b) const {
  const auto a = reinterpret_cast<std::uintptr_t>(b);
  // Pages start on system pages, so a block's alignment is that of its address.
  if (a % 8 != 0 || !shortcuts->pages.contains(a)) return false;
  return !isFree(b) && b->size >= kMinBlock && shortcuts->pages.contains(a + b->size - 1);
}

std::map<SecureHeap::BlockInfo*, std::uint64_t>::const_iterator SecureHeap::page_of_noLock(void const* address) const {
  const auto a = reinterpret_cast<std::uintptr_t>(address);
  auto page = heap_pages.upper_bound(const_cast<BlockInfo*>(static_cast<BlockInfo const*>(address)));
  if (page == heap_pages.begin()) return heap_pages.end();
  --page;
  return a < reinterpret_cast<std::uintptr_t>(page->first) + page->second ? page : heap_pages.end();
}

// ---- the protected operations, over their versions bound inside the library ----

void SecureHeap::insert_free(FreeBlockInfo* b) { insert_free_noLock(b); }
void SecureHeap::remove_free(FreeBlockInfo* b) { remove_free_noLock(b); }
std::size_t SecureHeap::rest_size(BlockInfo* b, std::size_t size) const { return rest_size_noLock(b, size); }
SecureHeap::FreeBlockInfo* SecureHeap::split(BlockInfo* b, std::size_t size) { return split_noLock(b, size); }
SecureHeap::FreeBlockInfo* SecureHeap::split_merge(BlockInfo* b, std::size_t size) {
  return split_merge_noLock(b, size);
}
void SecureHeap::merge(BlockInfo* b) { merge_noLock(b); }

// ---- the process's heap ----

void* malloc(std::size_t size) { return SecureHeap::instance().malloc(size); }
void free(void* p) { SecureHeap::instance().free(p); }
void* realloc(void* p, std::size_t size) { return SecureHeap::instance().realloc(p, size); }
std::size_t msize(void* p) { return SecureHeap::instance().msize(p); }

bool const hasOpenSSL_customMalloc = false;

}  // namespace crypto
}  // namespace zq
