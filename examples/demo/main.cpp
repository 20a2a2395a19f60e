// zq_demo: the road of one event through the library.
//
// The host sets its log, asks the plug-in loader for a weather station, connects a queued slot
// to the station's signal and lets the station's worker thread measure. Each reading travels
// from the worker thread to the default run loop's thread, where the slot queues a deferred
// call on the call thread, which records it in a file; the last deferred call finishes the
// program's work. The host then keeps its record only in encrypted form and reads it back.
// Every step is a line of the log, on the console and in zq_demo.log.
#include "IWeatherStation.h"

#include <zq/zq.h>

#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>

#include <chrono>
#include <future>
#include <iostream>
#include <sstream>
#include <streambuf>

namespace {

constexpr const char* kComponentInterface = "demo::IWeatherStation";
constexpr int kReadings = 3;
constexpr const char* kRecordFile = "zq_demo_readings.txt";
constexpr const char* kEncryptedFile = "zq_demo_readings.aes";

// Writes everything to two stream buffers: the log goes to the console and to its file.
class TeeBuffer : public std::wstreambuf {
 public:
  TeeBuffer(std::wstreambuf* a, std::wstreambuf* b) : m_a(a), m_b(b) {}

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const bool ok = !traits_type::eq_int_type(m_a->sputc(traits_type::to_char_type(c)), traits_type::eof()) &&
                    !traits_type::eq_int_type(m_b->sputc(traits_type::to_char_type(c)), traits_type::eof());
    return ok ? c : traits_type::eof();
  }
  int sync() override { return (m_a->pubsync() == 0 && m_b->pubsync() == 0) ? 0 : -1; }

 private:
  std::wstreambuf* m_a;
  std::wstreambuf* m_b;
};

// The receiving side: its slot runs on the run loop's thread, its deferred calls on the call
// thread.
class Host : public zq::CallOwner {
 public:
  ~Host() override { cancelCalls(true); }

  void onMeasured(const std::string& place, int degrees) {
    ZQ_LOG(zq::Log::Message, "demo::Host::onMeasured",
           "run loop thread " << zq::Mutex::currentThreadId() << " received measured(\"" << place << "\", " << degrees
                              << "); queueing a deferred call");
    asyncCall([this, place, degrees] { record(place, degrees); }, std::chrono::milliseconds(10));
  }

  std::future<int> finished() { return m_finished.get_future(); }

 private:
  // On the call thread: the program's work is to record the readings and add them up.
  void record(const std::string& place, int degrees) {
    boost::filesystem::ofstream(kRecordFile, std::ios::app) << place << " = " << degrees << "\n";
    m_sum += degrees;
    ++m_count;
    ZQ_LOG(zq::Log::Message, "demo::Host::record",
           "call thread " << zq::Mutex::currentThreadId() << " records " << place << " = " << degrees << " (" << m_count
                          << " of " << kReadings << ")");
    if (m_count == kReadings) m_finished.set_value(m_sum);
  }

  int m_sum = 0;
  int m_count = 0;
  std::promise<int> m_finished;
};

void step(const char* text) { ZQ_LOG(zq::Log::Message, "demo::main", text); }

// The record of readings is kept only encrypted: the plain file is encrypted under a random key,
// with the digest of its plain text taken in the same pass, and then overwritten and removed.
// Read back and decrypted in memory, the text must have the same digest.
void keepRecordEncrypted() {
  namespace crypto = zq::crypto;
  const crypto::secure_string key = crypto::randomKey(64);
  crypto::MessageDigest stored;
  crypto::encrypt(kRecordFile, kEncryptedFile, key, &stored);
  crypto::zeroOut(kRecordFile, 1);
  boost::filesystem::remove(kRecordFile);
  const crypto::secure_string storedDigest = stored.digest_base64();
  ZQ_LOG(zq::Log::Message, "demo::main",
         "7a. the record encrypted into " << kEncryptedFile << " (" << boost::filesystem::file_size(kEncryptedFile)
                                          << " bytes, AES-256); SHA-256 of the plain text " << storedDigest.c_str());

  boost::filesystem::ifstream in(kEncryptedFile, std::ios::binary);
  const crypto::secure_string data{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const crypto::secure_string text = crypto::decrypt(data, key);
  crypto::MessageDigest read;
  read.append(text.data(), text.size());
  const bool agree = read.digest_base64() == storedDigest;
  ZQ_LOG(zq::Log::Message, "demo::main",
         "7b. read back and decrypted, " << std::count(text.begin(), text.end(), '\n') << " readings: the two digests "
                                         << (agree ? "agree" : "DIFFER"));
  if (!agree) throw zq::RuntimeError("the record read back is not the record stored");
}

int run() {
  using zq::Log;
  // 1. The log: every level to zq_demo.log, and through a tee to the console as well.
  Log::setDefaultLogFile(L"zq_demo.log", true);
  // The tee lives until the process ends, and the log is never closed: the call thread and the
  // run loop are the library's and may log at any moment, up to the last instant of the process.
  std::wostream& file = *Log::instance().getStream(Log::Message);
  std::wostream& console = *new std::wostream(new TeeBuffer(std::wcout.rdbuf(), file.rdbuf()));
  for (int level = Log::Debug; level <= Log::Fatal; ++level) {
    Log::instance().setStream(static_cast<Log::ELevel>(level), &console, false);
  }
  Log::instance().setMessageLogLevel();
  step("1. log set to the console and zq_demo.log, threshold Message");

  // 2. The loader binds the packs in PlugIns beside this program at its first use.
  step("2. asking the plug-in loader for a demo::IWeatherStation with the capability \"temperature\"");
  boost::shared_ptr<zq::IComponent> component =
      zq::plugin::Loader::instance().getComponentInterface(kComponentInterface, demo::kTemperature);
  if (!component) {
    const zq::RuntimeError cause("no component pack in PlugIns offers " + std::string(kComponentInterface));
    throw zq::RuntimeError("the weather station is missing", &cause);
  }

  // 3. The component hands out its interface by identifier.
  auto* station = static_cast<demo::IWeatherStation*>(component->getInterface(demo::IWeatherStation::ID()));
  if (!station) throw zq::RuntimeError("the component does not answer for demo::IWeatherStation");
  step("3. the component answered getInterface(\"demo::IWeatherStation\")");

  // 4. Components that can be localised hear the program's language.
  step("4. setting the language of the components to \"fr\"");
  zq::plugin::Loader::instance().setLanguageOfComponents(L"fr");

  // 5. A queued slot: it runs on the default run loop, not on the emitting thread.
  Host host;
  std::future<int> finished = host.finished();
  const bool connected =
      station->signals().connect(demo::IWeatherStation::measured, &host, &Host::onMeasured, zq::Queued);
  ZQ_LOG(Log::Message, "demo::main",
         "5. queued slot " << (connected ? "connected" : "NOT connected") << " to \"measured\" (main thread "
                           << zq::Mutex::currentThreadId() << ")");
  if (!connected) throw zq::RuntimeError("connecting the slot failed");

  // 6. The station's worker thread emits; slots and deferred calls do the rest.
  step("6. starting the station's worker thread");
  boost::filesystem::remove(kRecordFile);  // a record of this run only
  station->startMeasuring(kReadings);
  if (finished.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
    throw zq::RuntimeError("the readings did not arrive in time");
  }
  station->stopMeasuring();
  ZQ_LOG(Log::Message, "demo::main",
         "7. the deferred calls finished the work: the readings add up to " << finished.get());
  keepRecordEncrypted();

  // 8. What the publisher declares and what is connected to it.
  step("8. the publisher's report:");
  std::ostringstream report;
  station->signals().printDebugInfo(report);
  console << zq::wconvert(report.str()) << std::flush;

  // 9. Orderly end: the slot goes, the component goes, the packs stay mapped until exit.
  station->signals().disconnect(demo::IWeatherStation::measured.name, &host, &Host::onMeasured);
  component.reset();
  zq::plugin::Loader::shutdown();
  step("9. disconnected, component released, loader shut down; exit 0");
  return 0;
}

}  // namespace

int main() {
  try {
    return run();
  } catch (const zq::Exception& e) {
    std::wcerr << L"zq_demo failed: ";
    e.writeTo(std::wcerr) << std::endl;
  }
  return 1;
}
