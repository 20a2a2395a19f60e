#include <zq/platform/Clock.h>

#include <time.h>

namespace zq {
namespace platform {

long long wallTicks() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<long long>(now.tv_sec) * 10000000LL + now.tv_nsec / 100;
}

bool localTime(std::time_t seconds, std::tm& o_tm) { return localtime_r(&seconds, &o_tm) != nullptr; }

}  // namespace platform
}  // namespace zq
