// Memory kept out of swap and out of core dumps, for the secure heap.
#pragma once

#include <cstddef>

namespace zq {
namespace platform {

// The system's page size.
std::size_t pageSize();

// `size` bytes of private, zero-filled, readable and writable memory in whole pages, left out of
// core dumps. Null when the system has no room.
void* mapPages(std::size_t size);

// Locks a region from mapPages in memory. When the system refuses for the process's limit of
// locked memory, the soft limit is raised by the refused size (no higher than the hard limit) and
// the lock is tried once more. 0 when locked, otherwise errno's value of the last refusal.
int lockPages(void* region, std::size_t size);

// Unmaps a region from mapPages, which unlocks it. Failures are of no use to callers and are
// dropped.
void unmapPages(void* region, std::size_t size);

}  // namespace platform
}  // namespace zq
