// zq_failure_probe MODE [FOLDER]: meets one refusal of the system in a process of its own and
// prints what the library answered, one line per step, then "done". The failure tests start it
// under the limit that makes the refusal (a lowered RLIMIT_NPROC, a full file system).
//   calls     the call thread can't be started
//   runloop   the default run loop's thread can't be started
//   thread    a client Thread can't be started
//   log DIR   the log file's file system fills up (a tmpfs of its own in a private mount
//             namespace when that can be had, else RLIMIT_FSIZE)
#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>
#include <zq/signals/SignalPublisher.h>
#include <zq/threads/CallOwner.h>
#include <zq/threads/Thread.h>

#include <boost/thread/exceptions.hpp>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <sstream>
#include <string>
#include <system_error>

namespace {

using namespace std::chrono_literals;

std::size_t queuedCalls() {
  std::lock_guard<std::mutex> lock(zq::CallOwner::getQueueMutex());
  return zq::CallOwner::getThreadQueue().size();
}

void calls() {
  for (int attempt = 0; attempt < 2; ++attempt) {
    zq::CallOwner owner;
    try {
      owner.asyncCall([] { std::cout << "a call ran" << std::endl; }, 0ns);
      std::cout << "asyncCall: queued" << std::endl;
    } catch (const std::system_error& e) {
      std::cout << "asyncCall: std::system_error" << std::endl;
    }
    std::cout << "queued calls: " << queuedCalls() << std::endl;
    owner.cancelCalls(false);
  }  // the owner's destructor must not wait for a thread that never was
}

class Source : public zq::SignalPublisher {
 public:
  static constexpr zq::Signal<int> tick{"tick"};
  Source() { declareSignal(tick); }
  ~Source() override { resetPtr(); }
};

void runLoop() {
  Source source;
  source.connect(
      Source::tick, &source, [](int) { std::cout << "a slot ran" << std::endl; }, zq::Queued);
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      const short taken = source.emit(Source::tick, 1);
      std::cout << "emit: " << taken << std::endl;
    } catch (const boost::thread_resource_error&) {
      std::cout << "emit: boost::thread_resource_error" << std::endl;
    } catch (const std::bad_alloc&) {
      std::cout << "emit: std::bad_alloc" << std::endl;
    }
  }
}

struct Body : zq::Runnable {
  void run() override { std::cout << "the body ran" << std::endl; }
};

void thread() {
  Body body;
  zq::Thread thread(&body);
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      thread.start();
      std::cout << "start: started" << std::endl;
    } catch (const zq::RuntimeError& e) {
      std::cout << "start: " << e.what() << std::endl;
    }
  }
  std::cout << "wait: " << thread.wait() << std::endl;
}

// A small file system of our own, seen by this process alone; false when we may not mount.
bool mountSmallFileSystem(const std::string& folder) {
  if (::unshare(CLONE_NEWNS) != 0) return false;
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  return ::mount("zq-full", folder.c_str(), "tmpfs", 0, "size=16k") == 0;
}

void logOnFullDisk(const std::string& folder) {
  const bool tmpfs = mountSmallFileSystem(folder);
  if (!tmpfs) {
    std::signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG instead of killing us
    const rlimit limit{16384, 16384};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  std::cout << "full by: " << (tmpfs ? "tmpfs" : "RLIMIT_FSIZE") << std::endl;
  const std::string path = folder + "/zq.log";
  zq::Log& log = zq::Log::instance();
  log.setLogLevel(zq::Log::Debug);
  log.setLogFile(zq::wconvert(path), true);
  const int lines = 2000;  // some 150 kB: far more than fits
  for (int i = 0; i < lines; ++i) ZQ_LOG(zq::Log::Warning, "zq::test::probe", "line " << i << " of the soak text");
  log.closeLogFile();
  std::cout << "logged: " << lines << " lines" << std::endl;

  // What reached the disk is whole lines in order, each but maybe the last one complete.
  std::ifstream in(path, std::ios::binary);
  std::string line;
  int expected = 0;
  bool ordered = true;
  while (std::getline(in, line)) {
    if (line.find("WARNING  [zq::test::probe] line ") == std::string::npos) continue;
    std::ostringstream want;
    want << "line " << expected << " of the soak text";
    if (line.find(want.str()) == std::string::npos && !in.eof()) ordered = false;
    ++expected;
  }
  in.close();  // an open reader would keep the removed file's space taken
  const auto bytes = std::filesystem::file_size(path);
  std::cout << "on disk: " << (bytes > 0 && bytes <= 16384 ? "some" : "wrong size") << ", "
            << (ordered ? "in order" : "out of order") << ", " << (expected < lines ? "cut" : "whole") << std::endl;

  // Space again: a new log file works at once.
  std::remove(path.c_str());
  log.setLogFile(zq::wconvert(path), true);
  ZQ_LOG(zq::Log::Warning, "zq::test::probe", "after the disk had room again");
  log.closeLogFile();
  std::ifstream again(path);
  std::getline(again, line);
  std::cout << "new file: " << (line.find("after the disk had room again") != std::string::npos ? "written" : "empty")
            << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "calls") {
    calls();
  } else if (mode == "runloop") {
    runLoop();
  } else if (mode == "thread") {
    thread();
  } else if (mode == "log" && argc > 2) {
    logOnFullDisk(argv[2]);
  } else {
    std::cerr << "usage: zq_failure_probe calls|runloop|thread|log DIR" << std::endl;
    return 2;
  }
  std::cout << "done" << std::endl;
  // Threads again for what runs at exit (a sanitizer's leak check).
  rlimit limit{};
  if (::getrlimit(RLIMIT_NPROC, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NPROC, &limit);
  }
  return 0;
}
