// Umbrella header: every public header of the zq library. A test keeps this list complete.
#pragma once

#include <zq/Export.h>

// foundation
#include <zq/foundation/Assert.h>
#include <zq/foundation/Exception.h>
#include <zq/foundation/Log.h>
#include <zq/foundation/Text.h>

// plugin
#include <zq/plugin/Component.h>
#include <zq/plugin/ComponentPack.h>
#include <zq/plugin/IInterface.h>
#include <zq/plugin/Lib.h>
#include <zq/plugin/Loader.h>

// values
#include <zq/values/Hash.h>
