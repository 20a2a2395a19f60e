// The interface that the demonstration's plug-in pack offers and its host uses. Host and pack
// share this header only: neither links against the other.
#pragma once

#include <zq/plugin/IInterface.h>
#include <zq/signals/SignalPublisher.h>

#include <string>

namespace demo {

// A weather station measures on a worker thread of its own and announces each reading with
// the signal `measured`: the place (a string) and the temperature in degrees (a number).
class IWeatherStation : public virtual zq::IInterface {
 public:
  static constexpr zq::Signal<std::string, int> measured{"measured"};

  static const char* ID() { return "demo::IWeatherStation"; }

  // The publisher that declares `measured`.
  virtual zq::SignalPublisher& signals() = 0;
  // Starts the worker thread, which takes `count` readings and ends.
  virtual void startMeasuring(int count) = 0;
  // Waits for the worker thread to end.
  virtual void stopMeasuring() = 0;

 protected:
  ~IWeatherStation() override = default;
};

// The capability the host asks for.
constexpr const char* kTemperature = "temperature";

}  // namespace demo
