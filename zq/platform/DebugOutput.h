// The sink behind Log::debugger(): Linux has no debugger output channel, so messages go to
// standard error unless a sink is installed.
#pragma once

namespace zq {
namespace platform {

typedef void (*DebugSink)(const wchar_t* message);

void outputDebugString(const wchar_t* message);
// Installs `sink` (null: the default) and returns the previous one.
DebugSink setDebugSink(DebugSink sink);

}  // namespace platform
}  // namespace zq
