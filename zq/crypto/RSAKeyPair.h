// RSA key pairs: generation, PEM text in and out (the public key in PKCS #1, the private key as
// PKCS #8 encrypted with AES-256-CBC under a pass phrase), the four raw operations with PKCS #1
// v1.5 padding, and a sign and verify that encrypt the data itself, with no digest.
//
// Built on OpenSSL's RSA functions, which OpenSSL 3 marks deprecated; the implementation uses
// them behind a local suppression of that warning.
#pragma once

#include <zq/Export.h>
#include <zq/crypto/SecureString.h>

#include <openssl/types.h>

namespace zq {
namespace crypto {

// Holds one key object: a full pair, a public key only, or nothing. Copies share the key object
// through OpenSSL's reference count. An object is used by one thread at a time; copies may be
// used on other threads as long as none of them is given a new key meanwhile.
//
// Made safe, other results unchanged:
// - create and the set... functions give this object a key object of its own (copies keep the
//   one they shared), since a key read or generated into a used object would mix halves, keep
//   stale cached values, or be freed under its copies when the text is bad.
// - Assignment frees what it replaces, and assigning an object to itself keeps its key.
// - Operations and printing on an object without a key give empty results instead of reading
//   the missing modulus.
// - maxDataSize never goes below 0, even for a loaded key shorter than 12 bytes.
// - verify is false when the signature does not decrypt, even for empty data.
// - An encrypted PEM given to setPublicKey fails rather than asking the terminal.
class ZQ_API RSAKeyPair {
 public:
  RSAKeyPair();
  // setKeyPair on the three texts; a failure is silent and keeps what was read so far.
  RSAKeyPair(secure_string publicKey, secure_string privateKey, secure_string passPhrase);
  RSAKeyPair(const RSAKeyPair& other);
  ~RSAKeyPair();
  RSAKeyPair& operator=(const RSAKeyPair& other);

  // Drops the key; the object holds nothing afterwards.
  void clear();
  // Generates a key of `bits` with the exponent 65537. Below 512 bits (OpenSSL's minimum), above
  // 16384 (more than OpenSSL's operations take, refused at once) or on any failure, the object
  // holds nothing.
  void create(int bits);

  bool empty() const;            // no modulus
  bool emptyPrivateKey() const;  // no private exponent
  bool emptyPublicKey() const;   // no public exponent
  // The longest data that encryption and sign take: the key's size in bytes less 12; 0 when empty.
  int maxDataSize() const;

  // PEM of the public key ("RSA PUBLIC KEY"); empty when there is none.
  secure_string printPublicKey() const;
  // PEM of the private key ("ENCRYPTED PRIVATE KEY"); empty when there is none or it can't be
  // written.
  secure_string printPrivateKey(secure_string passPhrase) const;

  // setPublicKey, then, if that worked, setPrivateKey.
  bool setKeyPair(secure_string publicKey, secure_string privateKey, secure_string passPhrase);
  // Reads an "RSA PUBLIC KEY" PEM; false (key unchanged) for anything else.
  bool setPublicKey(secure_string publicKey);
  // Reads an RSA private key PEM, decrypting it with `passPhrase`; false (key unchanged) for a
  // wrong pass phrase or anything else.
  bool setPrivateKey(secure_string privateKey, secure_string passPhrase);

  // Data longer than maxDataSize() is cut to it without a report. Empty on failure.
  secure_string public_encrypt(secure_string data) const;
  secure_string private_encrypt(secure_string data) const;
  // Empty on failure (wrong key, changed or over-long cipher text).
  secure_string public_decrypt(secure_string data) const;
  secure_string private_decrypt(secure_string data) const;

  // private_encrypt(data): so only the first maxDataSize() bytes are signed.
  secure_string sign(secure_string data) const;
  // Whether `signature` decrypts with the public key to exactly `data`.
  bool verify(secure_string data, secure_string signature) const;

 protected:
  using Operation = int (*)(int, const unsigned char*, unsigned char*, RSA*, int);

  // One raw operation with PKCS #1 padding; empty on failure. Wipes `data`.
  secure_string process(secure_string data, Operation operation) const;
  // OpenSSL's pass-phrase callback; `user` is the secure_string of the pass phrase (null: none).
  static int get_pass_phrase(char* buffer, int size, int rwflag, void* user);

 private:
  // Takes `rsa` (not null) in place of the current key.
  void replace(RSA* rsa);

  RSA* m_rsa;  // never null
};

}  // namespace crypto
}  // namespace zq
