// The demonstration's plug-in pack: one component, "demo.WeatherStation", that offers
// IWeatherStation and can be localised. Its worker thread emits `measured`.
#include "IWeatherStation.h"

#include <zq/foundation/Log.h>
#include <zq/plugin/Component.h>
#include <zq/plugin/ComponentPack.h>
#include <zq/threads/Mutex.h>
#include <zq/threads/Thread.h>

#include <atomic>
#include <string>

namespace demo {
namespace {

class WeatherStation : public zq::plugin::Component,
                       public zq::SignalPublisher,
                       public IWeatherStation,
                       public zq::ICanBeLocalized,
                       private zq::Runnable {
 public:
  WeatherStation() : m_thread(this) {
    addInterface(IWeatherStation::ID(), {kTemperature});
    addInterface(zq::ICanBeLocalized::ID(), {});
    declareSignal(measured);
  }
  ~WeatherStation() override {
    stopMeasuring();
    resetPtr();  // guarded pointers to this publisher learn that it is gone
  }

  void* getInterface(const char* id) override {
    if (std::string(id) == IWeatherStation::ID()) return static_cast<IWeatherStation*>(this);
    if (std::string(id) == zq::ICanBeLocalized::ID()) return static_cast<zq::ICanBeLocalized*>(this);
    return zq::plugin::Component::getInterface(id);
  }

  zq::SignalPublisher& signals() override { return *this; }

  void startMeasuring(int count) override {
    m_count = count;
    m_thread.start();
  }
  void stopMeasuring() override { m_thread.wait(); }

  bool setLanguage(const std::wstring& language) override {
    m_french = language == L"fr";
    ZQ_LOG(zq::Log::Message, "demo::WeatherStation::setLanguage",
           "place names are now in " << (m_french ? "French" : "English"));
    return true;
  }

 private:
  // The worker thread's body: one reading a step, each announced through the signal.
  void run() override {
    static const char* const kPlaces[2][3] = {{"garden", "cellar", "attic"}, {"jardin", "cave", "grenier"}};
    for (int i = 0; i < m_count; ++i) {
      const std::string place = kPlaces[m_french ? 1 : 0][i % 3];
      const int degrees = 18 + 3 * i;
      ZQ_LOG(zq::Log::Message, "demo::WeatherStation::run",
             "worker thread " << zq::Mutex::currentThreadId() << " emits measured(\"" << place << "\", " << degrees
                              << ")");
      const short taken = emit(measured, place, degrees);
      ZQ_LOG(zq::Log::Debug, "demo::WeatherStation::run", taken << " connection(s) took the call");
    }
  }

  zq::Thread m_thread;
  int m_count = 0;
  std::atomic<bool> m_french{false};
};

zq::plugin::ComponentPack& pack() {
  static zq::plugin::ComponentPack table = zq::plugin::ComponentPack().add<WeatherStation>("demo.WeatherStation");
  return table;
}

}  // namespace
}  // namespace demo

ZQ_COMPONENT_PACK(demo::pack())
