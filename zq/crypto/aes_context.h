// The streaming core of the cryptography layer: AES with a 256-bit key in CBC mode with PKCS
// padding, over one OpenSSL cipher context and one ring of cipher text. Encrypting, plain text is
// pushed in and cipher text collects in the ring for the caller to drain; decrypting, the caller
// fills the ring with cipher text and pulls plain text out. The class knows no file format: the
// initialisation vector is the caller's to store and hand back.
#pragma once

#include <zq/Export.h>
#include <zq/crypto/SecureString.h>
#include <zq/crypto/ring_buffer.h>

#include <openssl/types.h>

#include <cstddef>

namespace zq {
namespace crypto {

// One object belongs to one thread at a time. No cipher failure is reported: a wrong key shows
// as wrong plain text, and the final padding check of a wrong key yields no bytes.
// Where a bit-for-bit copy would share the cipher state, a copy of an open context gets a cipher
// context of its own (EVP_CIPHER_CTX_copy), so that each goes on, and is closed, on its own.
class ZQ_API aes_context {
 public:
  using buffer_type = ring_buffer<unsigned char, secure_allocator<unsigned char>>;
  using range_type = buffer_type::range_type;

  static constexpr std::size_t k_blockSize = 16;
  // Bytes of key that the cipher uses, and the length an encrypting key is brought to.
  static constexpr std::size_t k_keySize = 32;
  static constexpr std::size_t k_paddedKeySize = 64;

  // A closed context whose ring has the capacity recommendedBufferSize(size).
  explicit aes_context(std::size_t size);
  aes_context(const aes_context& other);
  aes_context& operator=(const aes_context& other);
  ~aes_context();

  // Starts encrypting under `key` brought to 64 bytes (padded with blanks or cut; the cipher uses
  // the first 32). Returns the new random initialisation vector of 16 bytes. `key` is wiped.
  secure_string init_for_encrypting(secure_string key);
  // Starts decrypting. The key is taken as it stands, not padded: what was encrypted under "abc"
  // decrypts under "abc" padded with blanks to 32 bytes or more. A key shorter than 32 bytes (a
  // vector shorter than 16) is read as if filled up with zeros, never past its end. Both are wiped.
  void init_for_decrypting(secure_string key, secure_string iv);

  // Empties the ring (the caller must have drained it), encrypts from `in` into it while it has
  // room, and advances `in`. Returns the bytes now in the ring; `in` may have bytes left.
  std::size_t encrypt_buffer(range_type& in);
  // Finishes the message into the ring, emptied first if `clear_buffer` (and grown, not overrun,
  // if it lacks a block of room in one piece). Returns the bytes added.
  std::size_t encrypt_final(bool clear_buffer);

  // Decrypts from the ring into `out` while `out` has more than a block of room. Returns the
  // bytes produced; `out` is advanced by them.
  std::size_t decrypt_buffer(range_type& out);
  // One step of a pull loop, true while more is to come: with less than a block of room, false;
  // with an empty ring, the end of the message (decrypt_final) and false; with a block of room
  // exactly, false; otherwise decrypt_buffer, and true if it produced anything or took cipher
  // text in. Where only output would count, a step that takes in the last bytes without a
  // whole block out yet would end `while (decrypt_continue(out))` before the last block.
  bool decrypt_continue(range_type& out);
  // Finishes the message into `out`, advanced by at most its length; returns the length the
  // cipher reported. With a wrong key (or cut cipher text) that is 0.
  std::size_t decrypt_final(range_type& out);

  // Ends encrypting or decrypting and clears the cipher state; harmless when closed.
  void close();

  // The ring, for the caller to drain (encrypting) or fill (decrypting).
  buffer_type& buffer() { return m_buffer; }
  const buffer_type& buffer() const { return m_buffer; }

  // 16 random bytes, from OpenSSL's generator, seeded first if it needs it.
  static secure_string random_iv();
  // A ring capacity for pieces of `size` bytes: whole blocks, at least 2, plus the ring's unused
  // byte. 1024 gives 1025, 0 and 1 give 33.
  static std::size_t recommendedBufferSize(std::size_t size);

 private:
  enum Mode { k_closed = 0, k_encrypting = 1, k_decrypting = 2 };

  buffer_type m_buffer;
  EVP_CIPHER_CTX* m_cipher;  // made once; reset (all cleared) while closed
  int m_result = 1;          // the last EVP call's return value, kept but not exposed
  int m_mode = k_closed;
};

}  // namespace crypto
}  // namespace zq
