// A run loop of the client's own: an io_service served by the library's loop body on a thread
// the client chooses, for queued and delayed slots that must run there (a host's main thread,
// say) rather than on the default run loop.
//
//   zq::RunLoop loop;
//   sensor.connect(Sensor::reading, &host, &Host::onReading, zq::Queued, loop.service());
//   std::thread worker([&] { sensor.emit(Sensor::reading, "pressure", 1013); });
//   loop.run();                  // serves here until a slot (or another thread) calls loop.stop()
//
// A loop serves until stop(); once stopped it stays stopped. A slot that throws is reported on
// std::cerr as "exception caught in worker thread", and with nothing else pending the loop
// ends as if stopped. Frames still waiting when the loop is destroyed are dropped undelivered.
//
// Thread-safe: service() and stop() from any thread. The loop must outlive every emission on
// the connections that name it and every repeater scheduled on it: disconnect them and stop
// the repeaters (stopRepeatSignal, cleanUp) before destroying it.
#pragma once

#include <zq/Export.h>

#include <boost/asio/io_service.hpp>

#include <memory>
#include <thread>

namespace zq {

class ZQ_API RunLoop {
 public:
  RunLoop();
  // Stops the loop and joins its own thread, if start() made one; not to be called from a
  // slot of this loop.
  ~RunLoop();

  // What connect and repeatSignal take as their run loop.
  boost::asio::io_service* service() const { return m_service.get(); }

  // Serves on the calling thread until the loop is stopped.
  void run();
  // Serves on a thread of its own; a second call does nothing.
  void start();
  // Asks the loop to end: run() returns once the slot in progress, if any, has returned.
  void stop();
  bool stopped() const { return m_service->stopped(); }

 private:
  RunLoop(const RunLoop&);
  RunLoop& operator=(const RunLoop&);

  std::unique_ptr<boost::asio::io_service> m_service;
  std::thread m_thread;
};

}  // namespace zq
