// The URL parser's two inner steps, for the library's own use (Url scans with HTScan).
#pragma once

#include <zq/Export.h>
#include <zq/Net/HTParse.h>

namespace zq {
namespace internal {

// Splits `text` into `parts`, writing NUL bytes into it. `text` must not be null.
void HTScan(char* text, HTParts* parts);

// Removes "." and ".." segments in place; a slash that follows another one (a host's) is never
// climbed over. Exported only so that the unit tests reach the guards and the closing rule,
// which HTParse's inputs hardly ever reach.
ZQ_API void HTCollapse(char* path);

}  // namespace internal
}  // namespace zq
