// zq_demo: the library's foundation at work. The log goes to a file and to the console at
// several levels while the threshold changes, and a chained exception is printed with its
// causes.
#include <zq/zq.h>

#include <fstream>
#include <iostream>
#include <string>

namespace {

// A failure as a client library would report it: the outermost error names what the
// program was doing, the causes say why.
void readSettings() {
  const zq::RuntimeError disk("read(2) failed: input/output error");
  const zq::RuntimeError file("cannot read \"settings.conf\"", &disk);
  throw zq::LogicError("settings are incomplete", &file);
}

}  // namespace

int main(int argc, char** argv) {
  using zq::Log;
  const std::wstring logPath = zq::wconvert(argc > 1 ? std::string(argv[1]) : std::string("zq_demo.log"));
  Log& log = Log::instance();

  std::wcout << L"== 1. The log is silent until the program sets a stream." << std::endl;
  ZQ_LOG(Log::Warning, "demo::main", "nobody sees this line");

  std::wcout << L"== 2. All levels to " << logPath << L", then warnings and worse moved to the console." << std::endl;
  log.setLogFile(logPath, true);
  log.setStream(Log::Warning, &std::wcout, false);
  log.setStream(Log::Critical, &std::wcout, false);
  log.setStream(Log::Fatal, &std::wcout, false);
  for (int level = Log::Debug; level <= Log::Fatal; ++level) {
    ZQ_LOG(level, "demo::main", "a line at level " << level << " (" << Log::s_logLevels[level].name << ")");
  }

  std::wcout << L"== 3. Threshold raised to Critical: debug, message and warning lines are dropped." << std::endl;
  log.setErrorLogLevel();
  for (int level = Log::Debug; level <= Log::Fatal; ++level) {
    ZQ_LOG(level, "demo::main", "after raising the threshold, level " << level);
  }
  log.setDebugLogLevel();

  std::wcout << L"== 4. A chained exception, printed with its causes." << std::endl;
  try {
    readSettings();
  } catch (const zq::Exception& e) {
    e.writeTo(std::wcout) << std::endl;
    ZQ_LOG(Log::Critical, "demo::main", "caught: " << e.whatStr());
  }

  std::wcout << L"== 5. An assertion report goes to the log and goes on." << std::endl;
  zq::assert_log_error_x(L"void demo::main(void)", L"Checking the demo", L"( 1 == 2 )", L"void demo::main(void)");

  log.closeLogFile();
  std::wcout << L"== 6. The log file " << logPath << L" now reads:" << std::endl;
  std::ifstream file(zq::convert(logPath));
  for (std::string line; std::getline(file, line);) std::wcout << L"   | " << zq::wconvert(line) << std::endl;
  return 0;
}
