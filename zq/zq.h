// Umbrella header: every public header of the zq library. A test keeps this list complete.
#pragma once

#include <zq/Export.h>

// foundation
#include <zq/foundation/Assert.h>
#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>
#include <zq/foundation/Text.h>

// values
#include <zq/values/Hash.h>

// signals
#include <zq/signals/Argument.h>
#include <zq/signals/Connection.h>
#include <zq/signals/GuardedPtr.h>
#include <zq/signals/SignalPublisher.h>
