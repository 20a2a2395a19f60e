// Umbrella header: every public header of the zq library. A test keeps this list complete.
#pragma once

#include <zq/Export.h>

// foundation
#include <zq/foundation/Assert.h>
#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>
#include <zq/foundation/Text.h>

// threads
#include <zq/threads/CallOwner.h>
#include <zq/threads/CallThread.h>

// values
#include <zq/values/Hash.h>
