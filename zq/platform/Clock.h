// Wall clock and local time for the log's prefix.
#pragma once

#include <ctime>

namespace zq {
namespace platform {

// Wall time in 100-nanosecond ticks since the start of 1970.
long long wallTicks();

// Breaks `seconds` down in local time; false when the time can't be represented.
bool localTime(std::time_t seconds, std::tm& o_tm);

}  // namespace platform
}  // namespace zq
