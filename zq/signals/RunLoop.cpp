#include <zq/signals/RunLoop.h>

#include <zq/signals/Connection.h>

namespace zq {

// One thread serves it: slots of one loop never run side by side.
RunLoop::RunLoop() : m_service(new boost::asio::io_service(1)) {}

RunLoop::~RunLoop() {
  stop();
  if (m_thread.joinable()) m_thread.join();
}

void RunLoop::run() {
  boost::asio::io_service* service = m_service.get();
  ConnectionImplCpp::defaultRunLoop_main(service, false);
}

void RunLoop::start() {
  if (m_thread.joinable()) return;
  m_thread = std::thread([this] { run(); });
}

void RunLoop::stop() { m_service->stop(); }

}  // namespace zq
