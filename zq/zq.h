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
#include <zq/threads/Mutex.h>
#include <zq/threads/ReadWriteLock.h>
#include <zq/threads/Thread.h>
#include <zq/threads/TimeWindow.h>

// signals
#include <zq/signals/Argument.h>
#include <zq/signals/Connection.h>
#include <zq/signals/GuardedPtr.h>
#include <zq/signals/RunLoop.h>
#include <zq/signals/SignalPublisher.h>

// plugin
#include <zq/plugin/Component.h>
#include <zq/plugin/ComponentPack.h>
#include <zq/plugin/IInterface.h>
#include <zq/plugin/Lib.h>
#include <zq/plugin/Loader.h>

// Net
#include <zq/Net/HTParse.h>
#include <zq/Net/IPAddress.h>
#include <zq/Net/IPPort.h>
#include <zq/Net/MacAddress.h>
#include <zq/Net/Url.h>

// crypto
#include <zq/crypto/EncryptedStream.h>
#include <zq/crypto/MessageDigest.h>
#include <zq/crypto/RSAKeyPair.h>
#include <zq/crypto/SecureFile.h>
#include <zq/crypto/SecureString.h>
#include <zq/crypto/SymetricEncryption.h>
#include <zq/crypto/aes_context.h>
#include <zq/crypto/locked_string.h>
#include <zq/crypto/ring_buffer.h>

// values
#include <zq/values/Base64.h>
#include <zq/values/DataStream.h>
#include <zq/values/FileCache.h>
#include <zq/values/Hash.h>
#include <zq/values/Random.h>
#include <zq/values/VersionNumber.h>
