// Message digests over OpenSSL's EVP interface: one small integer per algorithm, its name and
// back (with the "PBKDF2;NAME;COUNT" form), incremental hashing with a byte count, the result
// raw or in Base64; and the password hashes (SHA-crypt, PBKDF2).
//
// Digests come from a library-private OpenSSL context with the default and legacy providers,
// fetched once: the application's own OpenSSL set-up is neither read nor changed. On OpenSSL 3
// SHA (SHA-0) and MDC2 do not exist: these values, like values outside the table, have no
// digest here (length 0, an empty digest, appends only counted). DSS and DSS-1 are SHA-1, as
// they always were. MD4 needs OpenSSL's legacy provider and has no digest without it.
#pragma once

#include <zq/Export.h>
#include <zq/crypto/SecureString.h>

#include <openssl/types.h>

#include <cstddef>
#include <string>

namespace zq {

template <class C>
struct basic_stringref;

namespace crypto {

// One message at a time: feed it with append, take digest(), then clear() before the next.
// An object is used by one thread at a time; the static members are thread-safe.
class ZQ_API MessageDigest {
 public:
  // A fixed underlying type: PBKDF2 values travel in this type too, beyond the named ones.
  enum Algorithm : int {
    MD0 = 0,
    MD4 = 1,
    MD5 = 2,
    MDC2 = 3,
    SHA = 4,
    SHA1 = 5,
    DSS = 6,
    DSS1 = 7,
    RIPEMD160 = 8,
    SHA224 = 9,
    SHA256 = 10,
    SHA384 = 11,
    SHA512 = 12
  };

  // A PBKDF2 value (bit 7 set, the count from bit 12) stands for its digest.
  explicit MessageDigest(Algorithm algorithm = SHA256);
  ~MessageDigest();
  // Copies are deep (the context's state is duplicated), so each object owns its context.
  MessageDigest(const MessageDigest& other);
  MessageDigest& operator=(const MessageDigest& other);

  // Feeds `size` bytes; size_t(-1) means up to the terminating zero, 0 does nothing.
  void append(const char* data, std::size_t size);
  void append(const std::string& data);
  void append(const basic_stringref<char>& data);
  // Feeds one byte, a zero byte included.
  MessageDigest& operator<<(char c);

  // Starts a new message; the count goes back to 0.
  void clear();
  // Bytes fed since construction or the last clear().
  std::size_t count() const { return m_count; }

  // The raw digest. The object is spent afterwards until clear().
  secure_string digest();
  // The raw digest in Base64, on one line.
  secure_string digest_base64();
  operator secure_string() { return digest(); }

  // Size of the digest in bytes; 0 for a value with no digest.
  int length() const;
  static int length(Algorithm algorithm);

  // "SHA-256" for 10, "PBKDF2;SHA-256;10000" for a PBKDF2 value. Empty for a value (or a
  // PBKDF2 value's digest) outside the table.
  static std::string algorithmName(int algorithm);
  // The value of a name (without regard to ASCII case), of a number above 0 ("5", "5abc"), or
  // of a "PBKDF2;NAME;COUNT" text, whose NAME may again be any of these; 10 (SHA-256) for what
  // it does not know. Numbers are read as 32-bit and saturate; the sum wraps in 32 bits.
  static int algorithmFromName(const std::string& name);

  // A Unix crypt hash of `key` for the setting `salt` ("$5$...", "$6$[rounds=N$]SALT"); a
  // setting that does not match means SHA-256, 5000 rounds and an empty salt. The salt runs to
  // the end of the setting (it may hold "$") and is cut to 16 bytes.
  static secure_string crypt(secure_string key, secure_string salt);
  // 64 bytes of PBKDF2-HMAC over `algorithm`'s digest, whatever its size. The 64 bytes stay zero
  // for a value with no digest, for MD0, and for `iterations` below 1.
  static secure_string passwordHash(secure_string password, secure_string salt, int iterations,
                                    Algorithm algorithm = SHA256);

  static constexpr std::size_t ROUNDS_DEFAULT = 5000;
  static constexpr std::size_t ROUNDS_MIN = 1000;
  static constexpr std::size_t ROUNDS_MAX = 999999999;
  static constexpr std::size_t SALT_LEN_MAX = 16;

 protected:
  // The EVP_MD of a value (a PBKDF2 value stands for its digest); null for a value with no
  // digest. It lives as long as the process.
  static const void* evp_type(Algorithm algorithm);
  // SHA-crypt; `algorithm` is SHA256 or SHA512 (anything else logs "not implemented" and gives
  // an empty string). The rounds are clamped to ROUNDS_MIN..ROUNDS_MAX.
  static secure_string crypt_sha(secure_string key, secure_string salt, Algorithm algorithm, std::size_t rounds,
                                 bool rounds_custom);

 private:
  // Feeds bytes without touching the count.
  void update(const void* data, std::size_t size);
  // Finishes the message into `out` (room for 64 bytes) and returns the digest's size.
  std::size_t finish(unsigned char* out);

  int m_algorithm;
  EVP_MD_CTX* m_context;
  std::size_t m_count = 0;
};

}  // namespace crypto
}  // namespace zq
