#include <zq/crypto/SymetricEncryption.h>

#include <zq/foundation/Log.h>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>

namespace zq {
namespace {

// The key table. Keys derived from it are shared between parties, so it never changes: every
// printable character but the space once, then the digits, the small letters and "A" to "X"
// once more, shuffled.
const char kKeyTable[] =
    "q*Z}yrq[iru<2l83Fh-vn4"
    "g3m9@5Rgw1ze(hLb0:c`t4"
    "1?+9B0W>zGAE2nIjNY)Qte"
    "EFXTJ=7xybA]Kmvfp;S\"VM"
    "lSVDX'HG|T8u#C7Po5dko,"
    "M$&sP%OwKx~sUfa{cNdJ\\R"
    "!_UDp^Q6jLOCB6/kWiIa.H";
static_assert(sizeof(kKeyTable) == 154 + 1, "the key table holds 154 characters");

const std::size_t kMaxInput = 0x7FFFFFEF;  // so that size + 16 still fits an int
const int kTooLarge = -1, kInitFailed = -2, kUpdateFailed = -3, kFinalFailed = -4;

// Failures are answered through codes here; what OpenSSL queued meanwhile would only confuse
// the caller's next OpenSSL call, so it goes when the scope ends. Older entries stay.
class ErrorQueueMark {
 public:
  ErrorQueueMark() { ERR_set_mark(); }
  ~ErrorQueueMark() { ERR_pop_to_mark(); }
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

struct ContextFree {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

// The one pass of both directions (1 encrypts, 0 decrypts). Encryption sizes `out` once the
// cipher is set up and empties it on failure; decryption sizes it first and keeps what was
// written. Plain text is never longer than its cipher text, and cipher text at most one block
// longer than its plain text, so size + 16 bytes always suffice.
template <class Byte>
int cipher(int direction, const unsigned char* key, const unsigned char* iv, const void* data, std::size_t size,
           std::vector<Byte>& out) {
  if (size > kMaxInput) return kTooLarge;
  const bool encrypting = direction == 1;
  if (!encrypting) out.resize(size + 16);
  ErrorQueueMark mark;
  const std::unique_ptr<EVP_CIPHER_CTX, ContextFree> context(EVP_CIPHER_CTX_new());
  if (!context || key == nullptr || iv == nullptr ||
      EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key, iv, direction) != 1)
    return kInitFailed;
  if (encrypting) out.resize(size + 16);

  auto* const buffer = reinterpret_cast<unsigned char*>(out.data());
  int updated = 0;
  if ((data == nullptr && size != 0) ||
      EVP_CipherUpdate(context.get(), buffer, &updated, static_cast<const unsigned char*>(data),
                       static_cast<int>(size)) != 1) {
    if (encrypting) out.clear();
    return kUpdateFailed;
  }
  int finished = 0;
  if (EVP_CipherFinal_ex(context.get(), buffer + updated, &finished) != 1) {
    if (encrypting) out.clear();
    return kFinalFailed;
  }
  const int written = updated + finished;
  out.resize(static_cast<std::size_t>(written));
  return written;
}

// The central decrypt into `out`, which changes only when there is plain text.
template <class Out>
bool decryptInto(const unsigned char key[], const unsigned char iv[], const std::vector<unsigned char>& data,
                 Out& out) {
  std::vector<char> plain;
  const int code = SymetricEncryption::decrypt(key, iv, data.data(), data.size(), plain);
  if (code > 0) out.assign(plain.begin(), plain.end());
  return code >= 0;
}

}  // namespace

int SymetricEncryption::encrypt(const unsigned char key[], const unsigned char iv[], const char* data, std::size_t size,
                                std::vector<unsigned char>& out) {
  return cipher(1, key, iv, data, size, out);
}

int SymetricEncryption::decrypt(const unsigned char key[], const unsigned char iv[], const unsigned char* data,
                                std::size_t size, std::vector<char>& out) {
  return cipher(0, key, iv, data, size, out);
}

bool SymetricEncryption::encrypt(const unsigned char key[], const unsigned char iv[], const std::string& data,
                                 std::vector<unsigned char>& out) {
  return encrypt(key, iv, data.data(), data.size(), out) >= 0;
}

bool SymetricEncryption::encrypt(const unsigned char key[], const unsigned char iv[],
                                 const std::vector<unsigned char>& data, std::vector<unsigned char>& out) {
  return encrypt(key, iv, reinterpret_cast<const char*>(data.data()), data.size(), out) >= 0;
}

bool SymetricEncryption::decrypt(const unsigned char key[], const unsigned char iv[],
                                 const std::vector<unsigned char>& data, std::vector<unsigned char>& out) {
  return decryptInto(key, iv, data, out);
}

bool SymetricEncryption::decrypt(const unsigned char key[], const unsigned char iv[],
                                 const std::vector<unsigned char>& data, std::string& out) {
  out.clear();
  return decryptInto(key, iv, data, out);
}

std::vector<char> SymetricEncryption::encrypt(const std::vector<unsigned char>& key, const char* data,
                                              std::size_t size) {
  std::vector<char> message;
  if (key.size() != KEY_SIZE) return message;
  const std::vector<unsigned char> iv = random(BLOCK_SIZE);
  std::vector<unsigned char> cipherText;
  if (encrypt(key.data(), iv.data(), data, size, cipherText) < 0) return message;
  message.reserve(iv.size() + cipherText.size());
  message.insert(message.end(), iv.begin(), iv.end());
  message.insert(message.end(), cipherText.begin(), cipherText.end());
  return message;
}

std::vector<char> SymetricEncryption::decrypt(const std::vector<unsigned char>& key, const char* data,
                                              std::size_t size) {
  std::vector<char> plain;
  if (key.size() != KEY_SIZE || size < BLOCK_SIZE + 1 || data == nullptr) return plain;
  const auto* const message = reinterpret_cast<const unsigned char*>(data);
  if (decrypt(key.data(), message, message + BLOCK_SIZE, size - BLOCK_SIZE, plain) < 0) plain.clear();
  return plain;
}

std::vector<unsigned char> SymetricEncryption::random(std::size_t size) {
  std::vector<unsigned char> bytes(size);
  bool drawn = true;
  {
    ErrorQueueMark mark;
    for (std::size_t done = 0; done < size && drawn;) {
      const int chunk = static_cast<int>(std::min<std::size_t>(size - done, INT_MAX));
      drawn = RAND_bytes(bytes.data() + done, chunk) == 1;
      done += static_cast<std::size_t>(chunk);
    }
  }
  if (!drawn) ZQ_LOG(Log::Critical, "zq::SymetricEncryption::random", "RAND_bytes failed");
  return bytes;
}

std::vector<unsigned char> SymetricEncryption::random(const std::string& seed, std::size_t size, std::size_t salt) {
  static const std::string table(kKeyTable);
  std::vector<unsigned char> key;
  if (seed.empty()) return key;
  key.reserve(size);
  const std::uint64_t length = table.size();
  std::size_t s = seed.size() - 1;
  std::size_t p = (seed.size() + size + salt) % length;
  while (key.size() < size) {
    // The seed's character counts as a signed char on every platform, so that keys agree.
    const auto c = static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<signed char>(seed[s])));
    key.push_back(static_cast<unsigned char>(table[(c + p) % length]));
    if (s == 0) s = seed.size();
    --s;
    if (p != 0)
      --p;
    else
      p = size - 2;
  }
  return key;
}

}  // namespace zq
