#include <zq/crypto/MessageDigest.h>

#include <zq/crypto/internal/CryptSetting.h>
#include <zq/crypto/internal/OpenSslContext.h>
#include <zq/foundation/Log.h>
#include <zq/signals/Argument.h>
#include <zq/values/Base64.h>

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

namespace zq {
namespace crypto {

namespace {

constexpr int kRowCount = 13;
constexpr std::size_t kMaxDigest = 64;  // the longest digest of the table

struct Row {
  const char* name;
  const char* fetchName;  // null: OpenSSL 3 has no such digest
};

constexpr Row kRows[kRowCount] = {
    {"MD0", "NULL"},       {"MD4", "MD4"},        {"MD5", "MD5"},
    {"MDC2", nullptr},     {"SHA", nullptr},      {"SHA-1", "SHA1"},
    {"DSS", "SHA1"},       {"DSS-1", "SHA1"},     {"RIPEMD-160", "RIPEMD160"},
    {"SHA-224", "SHA224"}, {"SHA-256", "SHA256"}, {"SHA-384", "SHA384"},
    {"SHA-512", "SHA512"},
};

// The row of a value: bit 7 marks a PBKDF2 value, whose low 7 bits are the row. -1 outside.
int rowOf(int value) {
  const int row = (value & 0x80) != 0 ? (value & 0x7F) : value;
  return row >= 0 && row < kRowCount ? row : -1;
}

// Everything fetched from the library's context, once; kept for the life of the process, so
// that no call pays for a fetch and code running at exit can still hash.
class Fetched {
 public:
  static const Fetched& instance() {
    static const Fetched* const fetched = new Fetched;
    return *fetched;
  }

  const EVP_MD* digest(int row) const { return row < 0 ? nullptr : m_digests[row]; }
  EVP_KDF* pbkdf2() const { return m_pbkdf2; }

 private:
  Fetched() {
    OSSL_LIB_CTX* context = internal::libraryContext();
    if (context == nullptr) return;  // never the application's context in its place
    ERR_set_mark();                  // a digest this OpenSSL lacks is no error of the caller's
    for (int row = 0; row < kRowCount; ++row)
      m_digests[row] = kRows[row].fetchName == nullptr ? nullptr : EVP_MD_fetch(context, kRows[row].fetchName, nullptr);
    m_pbkdf2 = EVP_KDF_fetch(context, OSSL_KDF_NAME_PBKDF2, nullptr);
    ERR_pop_to_mark();
  }

  EVP_MD* m_digests[kRowCount] = {};
  EVP_KDF* m_pbkdf2 = nullptr;
};

const EVP_MD* evpOf(int value) { return Fetched::instance().digest(rowOf(value)); }

// Wipes strings taken by value, small-buffer ones included, when the call ends.
class WipeOnExit {
 public:
  WipeOnExit(secure_string& a, secure_string& b) : m_a(a), m_b(b) {}
  ~WipeOnExit() {
    wipe(m_a);
    wipe(m_b);
  }
  static void wipe(secure_string& s) {
    if (!s.empty()) zeroOut(&s[0], s.size());
  }

 private:
  secure_string& m_a;
  secure_string& m_b;
};

// ---- names ----

bool isAsciiSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

// The leading number of a text as a 32-bit atol reads it: blanks, a sign, digits, saturating
// at the 32-bit limits. It stops at the first other character, a zero byte included.
std::int32_t leadingNumber(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && isAsciiSpace(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  std::int64_t value = 0;
  const std::int64_t limit = negative ? -static_cast<std::int64_t>(INT32_MIN) : INT32_MAX;
  for (; i < text.size() && isAsciiDigit(text[i]); ++i) value = std::min(limit, value * 10 + (text[i] - '0'));
  return static_cast<std::int32_t>(negative ? -value : value);
}

// Splits "PBKDF2;NAME;COUNT" (prefix without regard to case, NAME not empty, COUNT all
// digits). NAME runs to the last ";", since COUNT holds none.
bool splitPbkdf2(std::string_view text, std::string_view& o_name, std::string_view& o_count) {
  constexpr std::string_view kPrefix = "PBKDF2;";
  if (text.size() < kPrefix.size() || !equalsIgnoringCase(text.substr(0, kPrefix.size()), kPrefix)) return false;
  const std::size_t last = text.rfind(';');
  if (last <= kPrefix.size() || last + 1 == text.size()) return false;
  o_count = text.substr(last + 1);
  if (!std::all_of(o_count.begin(), o_count.end(), isAsciiDigit)) return false;
  o_name = text.substr(kPrefix.size(), last - kPrefix.size());
  return true;
}

// ---- SHA-crypt ----

constexpr char kCryptAlphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

struct Group {
  unsigned char high, middle, low;
};
constexpr Group kGroups256[] = {{0, 10, 20}, {21, 1, 11}, {12, 22, 2}, {3, 13, 23}, {24, 4, 14},
                                {15, 25, 5}, {6, 16, 26}, {27, 7, 17}, {18, 28, 8}, {9, 19, 29}};
constexpr Group kGroups512[] = {{0, 21, 42},  {22, 43, 1},  {44, 2, 23},  {3, 24, 45},  {25, 46, 4},  {47, 5, 26},
                                {6, 27, 48},  {28, 49, 7},  {50, 8, 29},  {9, 30, 51},  {31, 52, 10}, {53, 11, 32},
                                {12, 33, 54}, {34, 55, 13}, {56, 14, 35}, {15, 36, 57}, {37, 58, 16}, {59, 17, 38},
                                {18, 39, 60}, {40, 61, 19}, {62, 20, 41}};

// A byte as a signed char widened to 32 bits: the stored format depends on the sign.
std::uint32_t signExtended(unsigned char byte) {
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(byte)));
}

void appendChars(secure_string& out, std::uint32_t word, int chars) {
  for (; chars > 0; --chars, word >>= 6) out += kCryptAlphabet[word & 63];
}

void appendEncoded(secure_string& out, const unsigned char* a, bool sha512) {
  const Group* begin = sha512 ? kGroups512 : kGroups256;
  const Group* end = sha512 ? std::end(kGroups512) : std::end(kGroups256);
  for (const Group* g = begin; g != end; ++g)
    appendChars(out, (((signExtended(a[g->high]) << 8) | signExtended(a[g->middle])) << 8) | signExtended(a[g->low]),
                4);
  if (sha512)
    appendChars(out, signExtended(a[63]), 2);
  else
    appendChars(out, (signExtended(a[31]) << 8) | signExtended(a[30]), 3);
}

// `digest` repeated and cut to `size` bytes.
secure_string repeated(const unsigned char* digest, std::size_t n, std::size_t size) {
  secure_string out(size, '\0');
  for (std::size_t i = 0; i < size; i += n) std::memcpy(&out[i], digest, std::min(n, size - i));
  return out;
}

}  // namespace

// ---- the digest object ----

MessageDigest::MessageDigest(Algorithm algorithm) : m_algorithm(algorithm), m_context(EVP_MD_CTX_new()) {
  if (m_context == nullptr) throw std::bad_alloc();
  clear();
}

MessageDigest::~MessageDigest() { EVP_MD_CTX_free(m_context); }

MessageDigest::MessageDigest(const MessageDigest& other)
    : m_algorithm(other.m_algorithm), m_context(EVP_MD_CTX_new()), m_count(other.m_count) {
  if (m_context == nullptr) throw std::bad_alloc();
  if (EVP_MD_CTX_get0_md(other.m_context) != nullptr) EVP_MD_CTX_copy_ex(m_context, other.m_context);
}

MessageDigest& MessageDigest::operator=(const MessageDigest& other) {
  if (this == &other) return *this;
  if (EVP_MD_CTX_get0_md(other.m_context) != nullptr)
    EVP_MD_CTX_copy_ex(m_context, other.m_context);
  else
    EVP_MD_CTX_reset(m_context);
  m_algorithm = other.m_algorithm;
  m_count = other.m_count;
  return *this;
}

void MessageDigest::update(const void* data, std::size_t size) {
  // A context with no digest has no update function to call.
  if (size != 0 && EVP_MD_CTX_get0_md(m_context) != nullptr) EVP_DigestUpdate(m_context, data, size);
}

std::size_t MessageDigest::finish(unsigned char* out) {
  unsigned int size = 0;
  if (EVP_MD_CTX_get0_md(m_context) == nullptr || EVP_DigestFinal_ex(m_context, out, &size) != 1) return 0;
  return size;
}

void MessageDigest::append(const char* data, std::size_t size) {
  if (data == nullptr) return;
  if (size == static_cast<std::size_t>(-1)) size = std::strlen(data);
  update(data, size);
  m_count += size;
}

void MessageDigest::append(const std::string& data) { append(data.data(), data.size()); }

void MessageDigest::append(const basic_stringref<char>& data) { append(data.m_text, data.m_length); }

MessageDigest& MessageDigest::operator<<(char c) {
  append(&c, 1);
  return *this;
}

void MessageDigest::clear() {
  if (const EVP_MD* md = evpOf(m_algorithm)) EVP_DigestInit_ex(m_context, md, nullptr);
  m_count = 0;
}

secure_string MessageDigest::digest() {
  unsigned char out[kMaxDigest];
  const std::size_t size = finish(out);
  secure_string result(reinterpret_cast<const char*>(out), size);
  zeroOut(out, sizeof(out));
  return result;
}

secure_string MessageDigest::digest_base64() {
  secure_string raw = digest();
  char text[256];
  const std::size_t size = Base64::encode(reinterpret_cast<const unsigned char*>(raw.data()), raw.size(), text,
                                          sizeof(text), Base64::kNoLineBreaks);
  secure_string result(text, size);
  zeroOut(text, sizeof(text));
  WipeOnExit::wipe(raw);
  return result;
}

int MessageDigest::length() const { return length(static_cast<Algorithm>(m_algorithm)); }

int MessageDigest::length(Algorithm algorithm) {
  const EVP_MD* md = evpOf(algorithm);
  return md == nullptr ? 0 : EVP_MD_get_size(md);
}

const void* MessageDigest::evp_type(Algorithm algorithm) { return evpOf(algorithm); }

// ---- names ----

std::string MessageDigest::algorithmName(int algorithm) {
  if (static_cast<signed char>(algorithm) < 0) {
    std::string name = algorithmName(algorithm & 0x7F);
    if (name.empty()) return name;
    return "PBKDF2;" + name + ";" + std::to_string(algorithm >> 12);
  }
  return algorithm >= 0 && algorithm < kRowCount ? kRows[algorithm].name : std::string();
}

int MessageDigest::algorithmFromName(const std::string& name) {
  // A nested PBKDF2 text adds its count and flag to what its NAME gives; a loop rather than
  // recursion, so that no name is deep enough to exhaust the stack.
  std::uint32_t sum = 0;
  std::string_view text = name;
  for (;;) {
    const std::int32_t number = leadingNumber(text);
    if (number > 0) return static_cast<int>(sum + static_cast<std::uint32_t>(number));
    std::string_view inner, count;
    if (!splitPbkdf2(text, inner, count)) break;
    sum += (static_cast<std::uint32_t>(leadingNumber(count)) << 12) + 128;
    text = inner;
  }
  for (int row = 0; row < kRowCount; ++row)
    if (equalsIgnoringCase(text, kRows[row].name)) return static_cast<int>(sum + static_cast<std::uint32_t>(row));
  return static_cast<int>(sum + SHA256);
}

// ---- password hashes ----

secure_string MessageDigest::crypt(secure_string key, secure_string salt) {
  WipeOnExit wipe(key, salt);
  const internal::CryptSetting setting = internal::readCryptSetting(std::string_view(salt.data(), salt.size()));
  return crypt_sha(std::move(key), secure_string(setting.salt.data(), setting.salt.size()), setting.algorithm,
                   setting.rounds, setting.roundsCustom);
}

secure_string MessageDigest::crypt_sha(secure_string key, secure_string salt, Algorithm algorithm, std::size_t rounds,
                                       bool rounds_custom) {
  WipeOnExit wipe(key, salt);
  if (algorithm != SHA256 && algorithm != SHA512) {
    ZQ_LOG(Log::Critical, "zq::crypto::MessageDigest::crypt", "not implemented");
    return secure_string();
  }
  if (salt.size() > SALT_LEN_MAX) {
    zeroOut(&salt[SALT_LEN_MAX], salt.size() - SALT_LEN_MAX);
    salt.resize(SALT_LEN_MAX);
  }
  rounds = internal::clampRounds(rounds);

  MessageDigest h(algorithm);
  const std::size_t n = static_cast<std::size_t>(h.length());
  if (n == 0) return secure_string();  // an OpenSSL without SHA-2: nothing to hash with
  const std::size_t keySize = key.size();
  unsigned char a[kMaxDigest], b[kMaxDigest], d[kMaxDigest];

  h.update(key.data(), keySize);
  h.update(salt.data(), salt.size());
  h.update(key.data(), keySize);
  h.finish(b);

  h.clear();
  h.update(key.data(), keySize);
  h.update(salt.data(), salt.size());
  std::size_t rest = keySize;
  for (; rest >= n; rest -= n) h.update(b, n);
  h.update(b, rest);
  for (std::size_t bits = keySize; bits != 0; bits >>= 1) {
    if ((bits & 1) != 0)
      h.update(b, n);
    else
      h.update(key.data(), keySize);
  }
  h.finish(a);

  h.clear();
  for (std::size_t i = 0; i < keySize; ++i) h.update(key.data(), keySize);
  h.finish(d);
  const secure_string p = repeated(d, n, keySize);

  // The first byte of A counts as signed, so the salt may go in fewer than 16 times, or not at all.
  h.clear();
  for (int i = 16 + static_cast<signed char>(a[0]); i > 0; --i) h.update(salt.data(), salt.size());
  h.finish(d);
  const secure_string s = repeated(d, n, salt.size());

  for (std::size_t i = 0; i < rounds; ++i) {
    h.clear();
    const bool odd = (i & 1) != 0;
    if (odd)
      h.update(p.data(), p.size());
    else
      h.update(a, n);
    if (i % 3 != 0) h.update(s.data(), s.size());
    if (i % 7 != 0) h.update(p.data(), p.size());
    if (odd)
      h.update(a, n);
    else
      h.update(p.data(), p.size());
    h.finish(a);
  }

  secure_string out;
  out.reserve(3 + 7 + 10 + 1 + SALT_LEN_MAX + 1 + 86);
  out += algorithm == SHA512 ? "$6$" : "$5$";
  if (rounds_custom) {
    out += "rounds=";
    out += std::to_string(rounds).c_str();
    out += '$';
  }
  out += salt;
  out += '$';
  appendEncoded(out, a, algorithm == SHA512);
  zeroOut(a, sizeof(a));
  zeroOut(b, sizeof(b));
  zeroOut(d, sizeof(d));
  return out;
}

secure_string MessageDigest::passwordHash(secure_string password, secure_string salt, int iterations,
                                          Algorithm algorithm) {
  WipeOnExit wipe(password, salt);
  secure_string result(kMaxDigest, '\0');
  const int row = rowOf(algorithm);
  EVP_KDF* pbkdf2 = Fetched::instance().pbkdf2();
  if (row < 0 || Fetched::instance().digest(row) == nullptr || pbkdf2 == nullptr || iterations < 1) return result;

  EVP_KDF_CTX* context = EVP_KDF_CTX_new(pbkdf2);
  if (context == nullptr) return result;
  // Empty octet strings still need a valid pointer.
  char empty = 0;
  std::uint64_t count = static_cast<std::uint64_t>(iterations);
  int noLowerBounds = 1;  // plain PKCS#5: any salt and count the caller gives
  const OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>(kRows[row].fetchName), 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, password.empty() ? &empty : &password[0],
                                        password.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt.empty() ? &empty : &salt[0], salt.size()),
      OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &count),
      OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &noLowerBounds),
      OSSL_PARAM_construct_end()};
  unsigned char out[kMaxDigest];
  ERR_set_mark();  // a refusal is reported by the zero bytes, not on the caller's error queue
  if (EVP_KDF_derive(context, out, sizeof(out), params) == 1) std::memcpy(&result[0], out, sizeof(out));
  ERR_pop_to_mark();
  zeroOut(out, sizeof(out));
  EVP_KDF_CTX_free(context);
  return result;
}

}  // namespace crypto
}  // namespace zq
