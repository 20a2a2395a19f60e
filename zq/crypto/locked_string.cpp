#include <zq/crypto/locked_string.h>

#include <zq/crypto/EncryptedStream.h>
#include <zq/crypto/SecureFile.h>
#include <zq/crypto/internal/Wipe.h>

namespace zq {
namespace crypto {

namespace {

constexpr std::size_t k_keySize = 64;

// Compares two plain values and wipes both, also where they sit in a string's small buffer.
bool equalAndWiped(secure_string a, secure_string b) {
  const bool equal = a == b;
  internal::wipe(a);
  internal::wipe(b);
  return equal;
}

}  // namespace

locked_string::locked_string(const secure_string& value) { *this = value; }

locked_string::~locked_string() {
  m_key.reset();
  m_cipher.reset();
}

locked_string& locked_string::operator=(const secure_string& value) {
  if (!m_key) {
    randomize();
    m_key = std::make_shared<secure_string>(randomKey(k_keySize));
  }
  // A new pointer each time: a copy that shares the old cipher text keeps it.
  if (value.empty()) {
    m_cipher.reset();
  } else {
    m_cipher = std::make_shared<secure_string>(encrypt(value, *m_key));
  }
  return *this;
}

bool locked_string::operator==(const locked_string& other) const {
  if (!m_cipher) return !other.m_cipher;
  if (!other.m_cipher) return false;
  if (m_key != other.m_key && *m_key != *other.m_key) {
    return equalAndWiped(*this, other);
  }
  return m_cipher == other.m_cipher || *m_cipher == *other.m_cipher;
}

bool locked_string::operator==(const secure_string& value) const { return equalAndWiped(*this, value); }

locked_string::operator secure_string() const {
  if (!m_cipher) return secure_string();
  return decrypt(*m_cipher, *m_key);
}

void locked_string::clear() {
  m_cipher.reset();
  m_key.reset();
}

}  // namespace crypto
}  // namespace zq
