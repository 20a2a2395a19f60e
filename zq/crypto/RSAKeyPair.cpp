#include <zq/crypto/RSAKeyPair.h>

#include <zq/crypto/SecureFile.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <new>
#include <utility>

// The RSA functions are deprecated in OpenSSL 3 but present, and give exactly the results this
// class promises (raw PKCS #1 operations, the PKCS #1 public key form).
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

namespace zq {
namespace crypto {
namespace {

using RawOperation = int (*)(int, const unsigned char*, unsigned char*, RSA*, int);

struct Free {
  void operator()(BIO* p) const { BIO_free(p); }
  void operator()(BIGNUM* p) const { BN_free(p); }
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(RSA* p) const { RSA_free(p); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

// Failures are answered through results here; what OpenSSL queued meanwhile would only confuse
// the caller's next OpenSSL call, so it goes when the scope ends. Older entries stay.
class ErrorQueueMark {
 public:
  ErrorQueueMark() { ERR_set_mark(); }
  ~ErrorQueueMark() { ERR_pop_to_mark(); }
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

RSA* newRsa() {
  RSA* rsa = RSA_new();
  if (rsa == nullptr) throw std::bad_alloc();
  return rsa;
}

void wipe(secure_string& s) {
  if (!s.empty()) zeroOut(&s[0], s.size());
}

enum class Part { Modulus, PublicExponent, PrivateExponent };

bool missing(const RSA* rsa, Part part) {
  const BIGNUM *n = nullptr, *e = nullptr, *d = nullptr;
  RSA_get0_key(rsa, &n, &e, &d);
  const BIGNUM* wanted = part == Part::Modulus ? n : part == Part::PublicExponent ? e : d;
  // RSA_size reads the modulus without looking, so it is asked only when there is one.
  return wanted == nullptr || n == nullptr || RSA_size(rsa) == 0;
}

// Runs `operation` on `data`; false when there is no key or OpenSSL refuses (a missing half).
bool run(RSA* rsa, const secure_string& data, RawOperation operation, secure_string& o_result) {
  if (missing(rsa, Part::Modulus)) return false;
  const int size = RSA_size(rsa);
  if (data.size() > static_cast<std::size_t>(size)) return false;  // OpenSSL would refuse it too
  secure_bytes buffer(static_cast<std::size_t>(size));
  ErrorQueueMark mark;
  const int written = operation(static_cast<int>(data.size()), reinterpret_cast<const unsigned char*>(data.data()),
                                buffer.data(), rsa, RSA_PKCS1_PADDING);
  if (written < 0) return false;
  o_result.assign(reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(written));
  return true;
}

// Cuts `data` to `limit` bytes, wiping what is cut off.
secure_string cut(secure_string data, int limit) {
  const auto keep = static_cast<std::size_t>(limit);
  if (data.size() > keep) {
    zeroOut(&data[keep], data.size() - keep);
    data.resize(keep);
  }
  return data;
}

using PemReader = RSA* (*)(BIO*, RSA**, pem_password_cb*, void*);

// A fresh key object read from `text`, or null.
RSA* readKey(const secure_string& text, PemReader reader, pem_password_cb* callback, void* user) {
  if (text.size() > static_cast<std::size_t>(INT_MAX)) return nullptr;
  Owned<BIO> bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  return bio ? reader(bio.get(), nullptr, callback, user) : nullptr;
}

secure_string contents(BIO* bio) {
  char* data = nullptr;
  const long size = BIO_ctrl(bio, BIO_CTRL_INFO, 0, &data);
  return size > 0 && data != nullptr ? secure_string(data, static_cast<std::size_t>(size)) : secure_string();
}

}  // namespace

RSAKeyPair::RSAKeyPair() : m_rsa(newRsa()) {}

RSAKeyPair::RSAKeyPair(secure_string publicKey, secure_string privateKey, secure_string passPhrase) : m_rsa(newRsa()) {
  randomize();
  setKeyPair(std::move(publicKey), std::move(privateKey), std::move(passPhrase));
}

RSAKeyPair::RSAKeyPair(const RSAKeyPair& other) : m_rsa(nullptr) {
  randomize();
  if (other.empty()) {
    m_rsa = newRsa();
  } else {
    RSA_up_ref(other.m_rsa);
    m_rsa = other.m_rsa;
  }
}

RSAKeyPair::~RSAKeyPair() { RSA_free(m_rsa); }

RSAKeyPair& RSAKeyPair::operator=(const RSAKeyPair& other) {
  if (this == &other) return *this;
  if (other.empty()) {
    replace(newRsa());
  } else {
    RSA_up_ref(other.m_rsa);  // before the old key goes: the two may be one object
    replace(other.m_rsa);
  }
  return *this;
}

void RSAKeyPair::replace(RSA* rsa) {
  RSA_free(m_rsa);
  m_rsa = rsa;
}

void RSAKeyPair::clear() { replace(newRsa()); }

void RSAKeyPair::create(int bits) {
  randomize();
  ErrorQueueMark mark;
  Owned<RSA> key(newRsa());
  Owned<BIGNUM> exponent(BN_new());
  // Above OpenSSL's modulus limit no operation would take the key, and generating it takes hours.
  const bool made = bits <= OPENSSL_RSA_MAX_MODULUS_BITS && exponent && BN_set_word(exponent.get(), RSA_F4) == 1 &&
                    RSA_generate_key_ex(key.get(), bits, exponent.get(), nullptr) == 1;
  replace(made ? key.release() : newRsa());
}

bool RSAKeyPair::empty() const { return missing(m_rsa, Part::Modulus); }
bool RSAKeyPair::emptyPrivateKey() const { return missing(m_rsa, Part::PrivateExponent); }
bool RSAKeyPair::emptyPublicKey() const { return missing(m_rsa, Part::PublicExponent); }

int RSAKeyPair::maxDataSize() const {
  // 12, one byte more than PKCS #1 v1.5 needs: the limit is part of this class's contract.
  return empty() ? 0 : std::max(RSA_size(m_rsa) - 12, 0);
}

secure_string RSAKeyPair::printPublicKey() const {
  if (emptyPublicKey()) return secure_string();
  ErrorQueueMark mark;
  Owned<BIO> bio(BIO_new(BIO_s_mem()));
  if (!bio || PEM_write_bio_RSAPublicKey(bio.get(), m_rsa) != 1) return secure_string();
  return contents(bio.get());
}

secure_string RSAKeyPair::printPrivateKey(secure_string passPhrase) const {
  secure_string text;
  if (!emptyPrivateKey()) {
    ErrorQueueMark mark;
    Owned<BIO> bio(BIO_new(BIO_s_mem()));
    Owned<EVP_PKEY> key(EVP_PKEY_new());
    if (bio && key && EVP_PKEY_set1_RSA(key.get(), m_rsa) == 1 &&
        PEM_write_bio_PKCS8PrivateKey(bio.get(), key.get(), EVP_aes_256_cbc(), nullptr, 0, &get_pass_phrase,
                                      &passPhrase) == 1)
      text = contents(bio.get());
  }
  wipe(passPhrase);
  return text;
}

bool RSAKeyPair::setKeyPair(secure_string publicKey, secure_string privateKey, secure_string passPhrase) {
  if (setPublicKey(std::move(publicKey))) return setPrivateKey(std::move(privateKey), std::move(passPhrase));
  wipe(privateKey);
  wipe(passPhrase);
  return false;
}

bool RSAKeyPair::setPublicKey(secure_string publicKey) {
  ErrorQueueMark mark;
  // A callback with no pass phrase: OpenSSL's default one would ask the terminal.
  RSA* read = readKey(publicKey, &PEM_read_bio_RSAPublicKey, &get_pass_phrase, nullptr);
  wipe(publicKey);
  if (read == nullptr) return false;
  replace(read);
  return true;
}

bool RSAKeyPair::setPrivateKey(secure_string privateKey, secure_string passPhrase) {
  ErrorQueueMark mark;
  RSA* read = readKey(privateKey, &PEM_read_bio_RSAPrivateKey, &get_pass_phrase, &passPhrase);
  wipe(privateKey);
  wipe(passPhrase);
  if (read == nullptr) return false;
  replace(read);
  return true;
}

secure_string RSAKeyPair::public_encrypt(secure_string data) const {
  return process(cut(std::move(data), maxDataSize()), &RSA_public_encrypt);
}

secure_string RSAKeyPair::private_encrypt(secure_string data) const {
  return process(cut(std::move(data), maxDataSize()), &RSA_private_encrypt);
}

secure_string RSAKeyPair::public_decrypt(secure_string data) const {
  return process(std::move(data), &RSA_public_decrypt);
}

secure_string RSAKeyPair::private_decrypt(secure_string data) const {
  return process(std::move(data), &RSA_private_decrypt);
}

secure_string RSAKeyPair::sign(secure_string data) const { return private_encrypt(std::move(data)); }

bool RSAKeyPair::verify(secure_string data, secure_string signature) const {
  secure_string recovered;
  // A signature that does not decrypt fails even against empty data.
  const bool valid = run(m_rsa, signature, &RSA_public_decrypt, recovered) && recovered == data;
  wipe(data);
  wipe(signature);
  return valid;
}

secure_string RSAKeyPair::process(secure_string data, Operation operation) const {
  secure_string result;
  run(m_rsa, data, operation, result);
  wipe(data);
  return result;
}

int RSAKeyPair::get_pass_phrase(char* buffer, int size, int /*rwflag*/, void* user) {
  if (buffer == nullptr || size <= 0 || user == nullptr) return 0;
  const secure_string& passPhrase = *static_cast<const secure_string*>(user);
  const std::size_t count = std::min(static_cast<std::size_t>(size), passPhrase.size());
  std::copy_n(passPhrase.data(), count, buffer);  // OpenSSL takes the count, no terminator
  return static_cast<int>(count);
}

}  // namespace crypto
}  // namespace zq

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
