// A string that holds its value only in encrypted form, under a random key of its own, so that
// the plain value exists only for the moment it is asked for.
#pragma once

#include <zq/Export.h>
#include <zq/crypto/SecureString.h>

#include <memory>

namespace zq {
namespace crypto {

// The cipher text and the key are shared between copies; each assignment of a value makes a new
// cipher text (with a new initialisation vector) under the object's key, which is drawn at the
// first assignment and kept until clear(). Comparison follows from that: values under different
// keys are decrypted and compared; under one key the cipher texts are compared, so two objects
// that share a key and were each assigned the same value compare unequal, while copies of one
// object compare equal. Not locked: one object belongs to one thread at a time, but objects that
// share a value may be read at the same time.
class ZQ_API locked_string {
 public:
  locked_string() = default;
  locked_string(const locked_string& other) = default;
  // Draws the key, even for an empty value.
  locked_string(const secure_string& value);
  ~locked_string();

  locked_string& operator=(const locked_string& other) = default;
  // Encrypts `value` under the object's key, drawn first if there is none yet; an empty value
  // leaves no cipher text, but the key stays.
  locked_string& operator=(const secure_string& value);

  bool operator==(const locked_string& other) const;
  // Decrypts the own value and compares.
  bool operator==(const secure_string& value) const;

  // The plain value; empty without one.
  operator secure_string() const;

  // Drops value and key: the next assignment draws a new key.
  void clear();
  bool empty() const { return !m_cipher; }

 private:
  std::shared_ptr<secure_string> m_cipher;  // the encrypted form of the value; null while empty
  std::shared_ptr<secure_string> m_key;     // 64 random bytes; null until the first assignment
};

}  // namespace crypto
}  // namespace zq
