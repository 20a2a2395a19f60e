#include <zq/crypto/aes_context.h>

#include <zq/crypto/SecureFile.h>
#include <zq/crypto/internal/OpenSslContext.h>
#include <zq/crypto/internal/Wipe.h>

#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace zq {
namespace crypto {

namespace {

constexpr std::size_t b = aes_context::k_blockSize;
// The EVP calls count in int: larger ranges go in pieces.
constexpr std::size_t k_maxPiece = std::size_t(1) << 30;

// AES-256-CBC from the layer's own library context, fetched once: the application's OpenSSL
// set-up is neither read nor changed, and no init looks the cipher up again.
const EVP_CIPHER* cipher() {
  static const EVP_CIPHER* const fetched = [] {
    OSSL_LIB_CTX* context = internal::libraryContext();
    const EVP_CIPHER* c = context != nullptr ? EVP_CIPHER_fetch(context, "AES-256-CBC", nullptr) : nullptr;
    return c != nullptr ? c : EVP_aes_256_cbc();
  }();
  return fetched;
}

unsigned char* bytes(secure_string& s) { return reinterpret_cast<unsigned char*>(s.data()); }

// A finishing call leaves an error on the thread's OpenSSL queue when the padding does not
// check out; nobody is told of that here, so nobody else should find it either.
class ErrorMark {
 public:
  ErrorMark() { ERR_set_mark(); }
  ~ErrorMark() { ERR_pop_to_mark(); }
  ErrorMark(const ErrorMark&) = delete;
  ErrorMark& operator=(const ErrorMark&) = delete;
};

}  // namespace

aes_context::aes_context(std::size_t size) : m_buffer(recommendedBufferSize(size)), m_cipher(EVP_CIPHER_CTX_new()) {
  if (m_cipher == nullptr) throw std::bad_alloc();
}

aes_context::aes_context(const aes_context& other) : aes_context(0) { *this = other; }

aes_context& aes_context::operator=(const aes_context& other) {
  if (this == &other) return *this;
  m_buffer = other.m_buffer;
  if (other.m_mode == k_closed || EVP_CIPHER_CTX_copy(m_cipher, other.m_cipher) != 1) EVP_CIPHER_CTX_reset(m_cipher);
  m_result = other.m_result;
  m_mode = other.m_mode;
  return *this;
}

aes_context::~aes_context() {
  close();
  EVP_CIPHER_CTX_free(m_cipher);
}

secure_string aes_context::init_for_encrypting(secure_string key) {
  key.resize(k_paddedKeySize, ' ');
  secure_string iv = random_iv();
  EVP_CIPHER_CTX_reset(m_cipher);
  m_result = EVP_EncryptInit_ex(m_cipher, cipher(), nullptr, bytes(key), bytes(iv));
  m_mode = k_encrypting;
  internal::wipe(key);
  return iv;
}

void aes_context::init_for_decrypting(secure_string key, secure_string iv) {
  // Zero-filled to the lengths the cipher reads.
  unsigned char keyBytes[k_keySize] = {};
  unsigned char ivBytes[b] = {};
  std::memcpy(keyBytes, key.data(), std::min(key.size(), sizeof keyBytes));
  std::memcpy(ivBytes, iv.data(), std::min(iv.size(), sizeof ivBytes));
  EVP_CIPHER_CTX_reset(m_cipher);
  m_result = EVP_DecryptInit_ex(m_cipher, cipher(), nullptr, keyBytes, ivBytes);
  m_mode = k_decrypting;
  zeroOut(keyBytes, sizeof keyBytes);
  zeroOut(ivBytes, sizeof ivBytes);
  internal::wipe(key);
  internal::wipe(iv);
}

std::size_t aes_context::encrypt_buffer(range_type& in) {
  m_buffer.clear();
  while (in.second != 0) {
    const range_type free = m_buffer.free_range();
    // Room for a block the cipher may have held back from earlier input.
    if (free.second < b) break;
    const std::size_t amount = std::min({free.second - b + 1, in.second, k_maxPiece});
    int produced = 0;
    m_result = EVP_EncryptUpdate(m_cipher, free.first, &produced, in.first, static_cast<int>(amount));
    buffer_type::advance(in, amount);
    m_buffer.commit(static_cast<std::size_t>(produced));
  }
  return m_buffer.size();
}

std::size_t aes_context::encrypt_final(bool clear_buffer) {
  if (clear_buffer) m_buffer.clear();
  // The last block needs a whole block of room in one piece.
  const range_type free = m_buffer.reserve(b);
  int produced = 0;
  ErrorMark mark;
  m_result = EVP_EncryptFinal_ex(m_cipher, free.first, &produced);
  m_buffer.commit(static_cast<std::size_t>(produced));
  return static_cast<std::size_t>(produced);
}

std::size_t aes_context::decrypt_buffer(range_type& out) {
  std::size_t total = 0;
  // The cipher writes up to a block more than it reads.
  while (!m_buffer.empty() && out.second > b) {
    const range_type filled = m_buffer.filled_range();
    const std::size_t amount = std::min({out.second - b, filled.second, k_maxPiece});
    int produced = 0;
    m_result = EVP_DecryptUpdate(m_cipher, out.first, &produced, filled.first, static_cast<int>(amount));
    buffer_type::advance(out, static_cast<std::size_t>(produced));
    m_buffer.consume(amount);
    total += static_cast<std::size_t>(produced);
  }
  return total;
}

bool aes_context::decrypt_continue(range_type& out) {
  if (out.second < b) return false;
  if (m_buffer.empty()) {
    decrypt_final(out);
    return false;
  }
  if (out.second == b) return false;
  const std::size_t before = m_buffer.size();
  return decrypt_buffer(out) != 0 || m_buffer.size() != before;
}

std::size_t aes_context::decrypt_final(range_type& out) {
  // Through a block of our own: the cipher may write a whole block, more than `out` may hold.
  unsigned char block[b];
  int produced = 0;
  {
    ErrorMark mark;
    m_result = EVP_DecryptFinal_ex(m_cipher, block, &produced);
  }
  const std::size_t n = std::min(static_cast<std::size_t>(produced), out.second);
  if (n != 0) std::memcpy(out.first, block, n);
  buffer_type::advance(out, n);
  zeroOut(block, sizeof block);
  return static_cast<std::size_t>(produced);
}

void aes_context::close() {
  if (m_mode == k_closed) return;
  EVP_CIPHER_CTX_reset(m_cipher);
  m_mode = k_closed;
}

secure_string aes_context::random_iv() { return randomKey(b); }

std::size_t aes_context::recommendedBufferSize(std::size_t size) {
  const std::size_t blocks = std::max<std::size_t>(size / b + (size % b != 0), 2);
  return blocks * b + 1;
}

}  // namespace crypto
}  // namespace zq
