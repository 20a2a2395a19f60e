// A 32-bit hash of a byte string (a variant of the ELF hash). Deterministic across runs and
// builds, so values may be stored; not for security.
#pragma once

#include <zq/Export.h>

#include <cstddef>

namespace zq {
namespace Hash {

// 0 for an empty range. Thread-safe.
ZQ_API unsigned int hash(const unsigned char* data, std::size_t size);

}  // namespace Hash
}  // namespace zq
