// Umbrella header: every public header of the zq library. A test keeps this list complete.
#pragma once

#include <zq/Export.h>

// foundation
#include <zq/foundation/Assert.h>
#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>
#include <zq/foundation/Text.h>

// threads
#include <zq/threads/Mutex.h>
#include <zq/threads/ReadWriteLock.h>
#include <zq/threads/Thread.h>
#include <zq/threads/TimeWindow.h>

// values
#include <zq/values/Hash.h>
