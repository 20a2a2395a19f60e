// The secure heap: blocks of any size in pages locked against paging and left out of core dumps.
// Every block is wiped when it is freed, and a page goes back to the system, wiped, the moment its
// last block is freed. Programs reach the one heap of the process through crypto::malloc, free,
// realloc and msize; the library's own strings and buffers don't allocate from it, and OpenSSL's
// allocator is never hooked (hasOpenSSL_customMalloc).
//
// Where the system refuses to lock memory beyond the limit that can be raised, a region stays
// unlocked (still out of core dumps, still wiped), one Warning line says so, and
// SecureHeap::all_pages_locked tells; no call retries for ever.
#pragma once

#include <zq/Export.h>

#include <boost/pool/pool_alloc.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <shared_mutex>

namespace zq {
namespace crypto {

// Regions straight from the system, locked where it allows, and the record of their sizes. The
// user allocator of the heap's Boost.Pool, hence the names, the char* types and the static form.
// Not synchronised: the heap calls it under its exclusive lock only, and whoever calls it
// directly, or uses a second SecureHeap, has to keep those calls apart.
class ZQ_API page_allocator {
 public:
  typedef std::size_t size_type;
  typedef std::ptrdiff_t difference_type;

  // A region of `size` bytes, readable, writable and locked, recorded in `pages`. When locking is
  // refused for the limit of locked memory, the soft limit is raised by the refused size up to the
  // hard limit; past that the region stays unlocked and the first such region logs a Warning.
  // Throws std::bad_alloc when the system can't map the memory.
  static char* malloc(size_type size);
  // Releases a region with the size recorded for it. Null or an unrecorded address does nothing.
  static void free(char const* p);
  // Wipes `size` bytes, drops the record, unlocks and releases. Null does nothing.
  static void free(char const* p, size_type size);
  static size_type page_size();
  // False for a region that had to stay unlocked; true for any other address.
  static bool is_locked(char const* p);

  // Every region held, with its size, for all heaps of the process. Made at load and never
  // destroyed, so a thread that frees a block during the exit still finds it.
  static std::map<char const*, std::size_t>& pages;
};

// A heap of blocks, each behind an 8-byte header, with payloads aligned to 8 bytes and capacities
// in multiples of 8 (at least 16). Free blocks are found by best fit in an index that itself lives
// in locked memory; neighbours are found from the headers, and a block freed next to a free one
// joins it at once.
//
// Thread-safe: one shared_mutex guards all, and msize reads a header without it. Meant to be one
// per process (instance()): the pool of the index and page_allocator are shared and unsynchronised,
// so a second heap must not be used while another thread uses the first. A heap must outlive its
// blocks, and its destructor releases no page.
//
// Safe forms of what would otherwise corrupt the heap or hang:
// - realloc that has to move allocates, copies and frees under the one lock it holds, instead of
//   taking that lock again from within.
// - realloc rounds its size as malloc does (at least 16, a multiple of 8): odd sizes would misalign
//   headers and truncate the stored distances, and sizes below 16 leave no room for a free block.
// - free and realloc of a pointer that is no block in use of this heap (freed before, or never
//   from here) write one Critical line and change nothing; realloc then returns null. Merging
//   clears the swallowed header so a second free of it is seen. msize trusts its pointer.
// - A size whose page would not fit the 32-bit size word throws std::bad_alloc.
class ZQ_API SecureHeap {
 public:
  // An empty heap whose pages are multiples of `granularity` bytes. Throws std::invalid_argument
  // for 0.
  explicit SecureHeap(std::size_t granularity);
  // Destroys the index and the record of pages; the pages themselves are left as they are.
  ~SecureHeap();

  // The process's heap, with a granularity of 16 system pages; built at first use, never deleted.
  static SecureHeap& instance();

  // A block of at least `size` bytes (0 gives 16); content unspecified. Throws std::bad_alloc.
  void* malloc(std::size_t size);
  // Wipes and frees the block. Null does nothing.
  void free(void* p);
  // Null acts as malloc. Otherwise resizes in place where the block or a free successor has room,
  // and moves the block when not; 0 shrinks to the smallest block. Throws std::bad_alloc, leaving
  // the block as it was.
  void* realloc(void* p, std::size_t size);
  // The block's capacity; 0 for null. Takes no lock.
  std::size_t msize(void* p) const;
  // The capacities of all blocks in use, slack included.
  std::size_t allocated_size() const;
  // The bytes of all pages held.
  std::size_t total_size() const;
  // Walks every header of every page and the whole index; false if any of them is inconsistent.
  bool heapWalk() const;
  // False when some page of this heap had to stay unlocked.
  bool all_pages_locked() const;

 protected:
  // In front of every block. The first word holds in_use (bit 0), last_in_page (bit 1) and the
  // distance back to the preceding block of the page (the rest; 0 for the first); `size` counts
  // the header too.
  struct BlockInfo {
    std::uint32_t prev_and_flags;
    std::uint32_t size;
  };
  // A block in the index: a doubly linked list per size, in the first 16 bytes of the payload.
  struct FreeBlockInfo : BlockInfo {
    FreeBlockInfo* next;
    FreeBlockInfo* prev;
  };

  BlockInfo* block(void* p) { return reinterpret_cast<BlockInfo*>(static_cast<char*>(p) - sizeof(BlockInfo)); }
  BlockInfo const* block(void const* p) const {
    return reinterpret_cast<BlockInfo const*>(static_cast<char const*>(p) - sizeof(BlockInfo));
  }
  static void* payload(BlockInfo* b) { return reinterpret_cast<char*>(b) + sizeof(BlockInfo); }
  // `size` under a coarse mask by its order of magnitude. Unused by the heap itself.
  static unsigned int block_class(std::size_t size);

  // The head of the list with the smallest capacity not below `size`; null if none.
  FreeBlockInfo* best_fit(std::size_t size) const;
  // A new page of `size` bytes that is one block, free but not in the index.
  BlockInfo* alloc_page(std::size_t size);
  void free_page(BlockInfo* b);
  // Pushes `b` on the list of its size (last in, first out) and marks it free.
  void insert_free(FreeBlockInfo* b);
  // Takes `b` out of its list and marks it in use.
  void remove_free(FreeBlockInfo* b);
  // What would be left over, a free successor included, if `b` held a payload of `size`; 0 if it
  // can't hold it.
  std::size_t rest_size(BlockInfo* b, std::size_t size) const;
  // Cuts `b` to a payload of `size` and returns the free tail, which is in no list.
  FreeBlockInfo* split(BlockInfo* b, std::size_t size);
  // As split, with a free successor of the tail taken out of the index and joined to the tail.
  FreeBlockInfo* split_merge(BlockInfo* b, std::size_t size);
  // Joins `b` with its successor.
  void merge(BlockInfo* b);

 private:
  SecureHeap(const SecureHeap&);
  SecureHeap& operator=(const SecureHeap&);

  typedef boost::fast_pool_allocator<std::pair<const std::uint64_t, FreeBlockInfo*>, page_allocator,
                                     boost::details::pool::null_mutex, 1024, 0>
      FreeIndexAllocator;
  typedef std::map<std::uint64_t, FreeBlockInfo*, std::less<std::uint64_t>, FreeIndexAllocator> FreeIndex;
  struct Shortcuts;

  // The work of the heap, bound inside the library (hidden), so that its own calls go straight to
  // it rather than through the dynamic linker's table; the protected operations call it too.
  ZQ_LOCAL void* malloc_noLock(std::size_t need);
  ZQ_LOCAL void free_noLock(BlockInfo* b);
  ZQ_LOCAL void insert_free_noLock(FreeBlockInfo* b);
  ZQ_LOCAL void remove_free_noLock(FreeBlockInfo* b);
  ZQ_LOCAL std::size_t rest_size_noLock(BlockInfo* b, std::size_t size) const;
  ZQ_LOCAL FreeBlockInfo* split_noLock(BlockInfo* b, std::size_t size);
  ZQ_LOCAL FreeBlockInfo* split_merge_noLock(BlockInfo* b, std::size_t size);
  ZQ_LOCAL void merge_noLock(BlockInfo* b);
  // Puts a tail cut from `b` in the index; when the index can't grow, `b` keeps it as slack.
  ZQ_LOCAL void give_back_tail(BlockInfo* b, FreeBlockInfo* tail);
  // The head of the non-empty list with the smallest key not below `size`; null if none.
  ZQ_LOCAL FreeBlockInfo** fit_noLock(std::size_t size);
  // The head of the list of `key`, made if there is none. Throws std::bad_alloc.
  ZQ_LOCAL FreeBlockInfo*& list_noLock(std::size_t key);
  // Marks the list of `key` empty once its last block has left it.
  ZQ_LOCAL void emptied_noLock(std::size_t key);
  // True when `b` is the header of a block in use in this heap's pages, as far as can be told
  // without a walk: inside the pages, aligned, in use, and ending inside them.
  ZQ_LOCAL bool in_use_here_noLock(BlockInfo const* b) const;
  // The page that holds `address`, or the end of heap_pages.
  ZQ_LOCAL std::map<BlockInfo*, std::uint64_t>::const_iterator page_of_noLock(void const* address) const;

  std::uint64_t page_granularity;
  // Capacity of a list of free blocks to its head. A key of 64 KiB or more is present only while
  // its list is not empty; a smaller one stays once made, so that sizes that come and go don't
  // rebalance the tree, and shortcuts says which of them have blocks.
  FreeIndex free_blocks;
  mutable std::shared_mutex lock;
  std::map<BlockInfo*, std::uint64_t> heap_pages;
  std::uint64_t allocated;
  // Lookups that skip the walks down the two trees: the lists of the smaller keys, and which
  // system pages are this heap's.
  Shortcuts* shortcuts;
};

// The process's secure heap, for the programs above the library.
ZQ_API void* malloc(std::size_t size);
ZQ_API void free(void* p);
ZQ_API void* realloc(void* p, std::size_t size);
ZQ_API std::size_t msize(void* p);

// Always false: OpenSSL keeps its own allocator. No code reads it.
ZQ_API extern bool const hasOpenSSL_customMalloc;

}  // namespace crypto
}  // namespace zq
