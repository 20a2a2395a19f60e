// Whole strings and files in the layer's encrypted form, and the Boost.Iostreams filters that the
// file operations are built from, for chains of the caller's own.
//
// The encrypted form, of strings and files alike: 16 bytes of random initialisation vector, then
// the AES-256-CBC cipher text of the plain text with PKCS padding (a multiple of 16 bytes, at
// least 16). No header, salt, stored digest or trailer. The key is the caller's pass phrase used
// directly, as aes_context takes it: padded with blanks to 64 bytes to encrypt, and its first 32
// bytes are the AES key, so `openssl enc -aes-256-cbc -K <hex of those 32> -iv <hex of the first
// 16 bytes>` reads what follows them. To decrypt, the key is taken as it stands: one shorter than
// 32 bytes must be padded with blanks by the caller. Nothing tells whether a key is right: a
// wrong one gives wrong plain text, without a report. Every call is independent of every other;
// two calls on the same files are not kept apart.
#pragma once

#include <zq/Export.h>
#include <zq/crypto/MessageDigest.h>
#include <zq/crypto/SecureString.h>
#include <zq/crypto/aes_context.h>

#include <boost/filesystem/path.hpp>
#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/operations.hpp>

#include <ios>

namespace zq {
namespace crypto {

// The encrypted form of `plain`. Both parameters are wiped.
ZQ_API secure_string encrypt(secure_string plain, secure_string key);
// The plain text of `data`; a padding failure (a wrong key) drops the last block without a word.
// Throws std::out_of_range ("invalid string position") for data shorter than 16 bytes.
ZQ_API secure_string decrypt(secure_string data, secure_string key);

// File to file: `target` receives the encrypted form of `source` (the plain text of `source`).
// A non-null `digest` is fed the plain text in the same pass; it is not finished here. A source
// that can't be opened reads as empty and a target that can't be opened swallows what is written,
// without a report. A target that stops taking bytes (a full disk) throws std::ios_base::failure
// and is removed, rather than left half-written. A file shorter than 16 bytes decrypts as empty.
ZQ_API void encrypt(const boost::filesystem::path& source, const boost::filesystem::path& target, secure_string key,
                    MessageDigest* digest);
ZQ_API void decrypt(const boost::filesystem::path& source, const boost::filesystem::path& target, secure_string key,
                    MessageDigest* digest);

// In place: the file's content is replaced by its encrypted form (its plain text), and the old
// content gets one pass of zeros. Nothing is lost on the way: the new form is written beside the
// file, flushed to the device, and takes the file's name in one rename; only then is the old
// content, held open, zeroed. A failure at any step before the rename (a missing or unreadable
// file, a folder that takes no new file, a full disk, a replacement that can't be made) leaves
// the file as it was, removes what was written and throws boost::filesystem::filesystem_error or
// std::ios_base::failure. A wrong key on decryption replaces the file with wrong plain text.
ZQ_API void encrypt(const boost::filesystem::path& file, secure_string key, MessageDigest* digest);
ZQ_API void decrypt(const boost::filesystem::path& file, secure_string key, MessageDigest* digest);

namespace internal {
// Throws std::ios_base::failure: the sink of an encrypting filter takes no more bytes.
[[noreturn]] ZQ_API void throwSinkRefused();
}  // namespace internal

// Multi-character output filter: encrypts what passes into the context's ring and writes it on;
// close() writes the last block and closes the context. The context must have been started with
// init_for_encrypting and must outlive the chain; the vector is the caller's to write first. A
// sink that takes nothing more (it must block, not refuse) throws std::ios_base::failure.
class ZQ_API encrypting_output_filter {
 public:
  using char_type = char;
  struct category : boost::iostreams::multichar_output_filter_tag, boost::iostreams::closable_tag {};

  explicit encrypting_output_filter(aes_context* context) : m_context(context) {}

  template <class Sink>
  std::streamsize write(Sink& sink, const char* s, std::streamsize n) {
    aes_context::range_type in(reinterpret_cast<unsigned char*>(const_cast<char*>(s)), static_cast<std::size_t>(n));
    while (in.second != 0) {
      m_context->encrypt_buffer(in);
      drain(sink);
    }
    return n;
  }

  template <class Sink>
  void close(Sink& sink) {
    m_context->encrypt_final(true);
    drain(sink);
    m_context->close();
  }

 private:
  template <class Sink>
  void drain(Sink& sink) {
    aes_context::buffer_type& ring = m_context->buffer();
    while (!ring.empty()) {
      const aes_context::range_type piece = ring.filled_range();
      const std::streamsize written = boost::iostreams::write(sink, reinterpret_cast<const char*>(piece.first),
                                                              static_cast<std::streamsize>(piece.second));
      if (written <= 0) internal::throwSinkRefused();
      ring.consume(static_cast<std::size_t>(written));
    }
  }

  aes_context* m_context;
};

// Multi-character input filter: reads cipher text into the context's ring and decrypts it; at
// the end of the source it finishes the message. close() closes the context. The context must
// have been started with init_for_decrypting (the vector read off first) and must outlive the
// chain. Reads need more than 16 bytes of room, as with Boost's buffers.
class ZQ_API decrypting_input_filter {
 public:
  using char_type = char;
  struct category : boost::iostreams::multichar_input_filter_tag, boost::iostreams::closable_tag {};

  explicit decrypting_input_filter(aes_context* context) : m_context(context) {}

  template <class Source>
  std::streamsize read(Source& source, char* s, std::streamsize n) {
    constexpr std::size_t b = aes_context::k_blockSize;
    aes_context::buffer_type& ring = m_context->buffer();
    aes_context::range_type out(reinterpret_cast<unsigned char*>(s), static_cast<std::size_t>(n));
    for (;;) {
      fill(source, ring);
      if (out.second < b) break;
      if (ring.empty()) {
        m_context->decrypt_final(out);
        if (out.second == static_cast<std::size_t>(n)) return -1;  // the end of the source and the message
        break;
      }
      if (out.second <= b) break;
      const std::size_t before = ring.size();
      m_context->decrypt_buffer(out);
      // Cipher text taken in without a whole block out yet is progress too: only a pass that
      // took nothing ends the call.
      if (ring.size() == before) break;
    }
    return n - static_cast<std::streamsize>(out.second);
  }

  template <class Source>
  void close(Source&) {
    m_context->close();
  }

 private:
  template <class Source>
  static void fill(Source& source, aes_context::buffer_type& ring) {
    while (!ring.full()) {
      const aes_context::range_type free = ring.free_range();
      const std::streamsize got = boost::iostreams::read(source, reinterpret_cast<char*>(free.first),
                                                         static_cast<std::streamsize>(free.second));
      if (got <= 0) return;
      ring.commit(static_cast<std::size_t>(got));
    }
  }

  aes_context* m_context;
};

// Multi-character output filter: writes on what passes and feeds the digest what the next stage
// took. The digest must outlive the chain.
class ZQ_API digesting_output_filter {
 public:
  using char_type = char;
  using category = boost::iostreams::multichar_output_filter_tag;

  explicit digesting_output_filter(MessageDigest* digest) : m_digest(digest) {}

  template <class Sink>
  std::streamsize write(Sink& sink, const char* s, std::streamsize n) {
    const std::streamsize written = boost::iostreams::write(sink, s, n);
    if (written > 0) m_digest->append(s, static_cast<std::size_t>(written));
    return written;
  }

 private:
  MessageDigest* m_digest;
};

// Multi-character input filter: passes on what it reads and feeds it to the digest. The digest
// must outlive the chain.
class ZQ_API digesting_input_filter {
 public:
  using char_type = char;
  using category = boost::iostreams::multichar_input_filter_tag;

  explicit digesting_input_filter(MessageDigest* digest) : m_digest(digest) {}

  template <class Source>
  std::streamsize read(Source& source, char* s, std::streamsize n) {
    const std::streamsize got = boost::iostreams::read(source, s, n);
    if (got > 0) m_digest->append(s, static_cast<std::size_t>(got));
    return got;
  }

 private:
  MessageDigest* m_digest;
};

}  // namespace crypto
}  // namespace zq
