// Uses the installed library through its umbrella header, as a client program would.
#include <zq/zq.h>

#include <iostream>
#include <sstream>

int main() {
  std::wostringstream out;
  zq::Log::instance().setStream(zq::Log::Message, &out, false);
  ZQ_LOG(zq::Log::Message, "consumer::main", "installed zq " << 42);
  zq::Log::instance().setStream(zq::Log::Message, nullptr, false);

  const zq::RuntimeError cause("cause");
  const zq::RuntimeError error("outer", &cause);
  std::ostringstream text;
  error.writeTo(text);
  const bool ok = out.str().find(L"[consumer::main] installed zq 42") != std::wstring::npos &&
                  text.str() == "outer\n caused by: cause";
  std::cout << (ok ? "consumer ok" : "consumer FAILED") << std::endl;
  return ok ? 0 : 1;
}
