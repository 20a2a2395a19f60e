#include <zq/crypto/aes_context.h>

#include "tests/crypto/AesTestSupport.h"

#include <openssl/err.h>

#include <string>
#include <vector>

namespace {

using zq::crypto::aes_context;
using zq::crypto::secure_string;
using zq::test::blankPadded;
using zq::test::bytesOf;
using zq::test::hex;
using zq::test::referenceCbc;
using Ring = zq::ring_buffer<unsigned char>;

void put(Ring& ring, const std::string& bytes) {
  Ring::range_type in(reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data())), bytes.size());
  ring.write(in);
}

std::string take(Ring& ring) {
  std::string out;
  for (Ring::range_type piece = ring.filled_range(); piece.second != 0; piece = ring.filled_range()) {
    out.append(reinterpret_cast<const char*>(piece.first), piece.second);
    ring.consume(piece.second);
  }
  return out;
}

// Drains the ring of an encrypting context into `out`.
void drain(aes_context& context, secure_string& out) {
  const aes_context::range_type piece = context.buffer().filled_range();
  out.append(reinterpret_cast<const char*>(piece.first), piece.second);
  context.buffer().consume(piece.second);
  ASSERT_TRUE(context.buffer().empty()) << "encrypting never wraps the ring";
}

// Pushes `plain` through an encrypting context in pieces of `piece` bytes, and the end of the
// message if `last`.
secure_string encryptStreaming(aes_context& context, const secure_string& plain, std::size_t piece, bool last = true) {
  secure_string out;
  for (std::size_t at = 0; at < plain.size(); at += piece) {
    const std::size_t n = std::min(piece, plain.size() - at);
    aes_context::range_type in(reinterpret_cast<unsigned char*>(const_cast<char*>(plain.data())) + at, n);
    while (in.second != 0) {
      context.encrypt_buffer(in);
      drain(context, out);
    }
  }
  if (last) {
    context.encrypt_final(true);
    drain(context, out);
  }
  return out;
}

// The pull loop: the ring holds the cipher text, plain text comes out `room` bytes at a time.
secure_string pull(aes_context& context, const secure_string& cipher, std::size_t room) {
  aes_context::range_type in(reinterpret_cast<unsigned char*>(const_cast<char*>(cipher.data())), cipher.size());
  context.buffer().write(in);
  secure_string plain;
  std::vector<unsigned char> buffer(room);
  for (bool more = true; more;) {
    aes_context::range_type out(buffer.data(), buffer.size());
    more = context.decrypt_continue(out);
    plain.append(reinterpret_cast<const char*>(buffer.data()), buffer.size() - out.second);
  }
  return plain;
}

// One slot stays unused; free and filled space come in up to two pieces; a reserve moves the
// contents to the front, or grows the ring by what is needed plus 16, keeping their order.
TEST(RingBuffer, WrapsReservesAndGrowsInOrder) {
  Ring ring(8);
  EXPECT_EQ(7u, ring.free_range().second);
  put(ring, "abcde");
  ring.consume(4);
  EXPECT_EQ(3u, ring.free_range().second) << "free space up to the end of the storage";
  put(ring, "fghij");
  EXPECT_EQ(4u, ring.filled_range().second) << "the first filled piece runs to the end of the storage";
  EXPECT_EQ(1u, ring.free_range().second) << "the slot in front of the read index stays unused";
  put(ring, "k");
  EXPECT_TRUE(ring.full());
  EXPECT_EQ(8u, ring.capacity());
  EXPECT_EQ("efghijk", take(ring));
  EXPECT_EQ(7u, ring.free_range().second) << "an emptied ring starts again at its beginning";

  Ring split(16);
  put(split, "0123456789ab");
  split.consume(10);
  EXPECT_EQ(13u, split.reserve(6).second) << "room enough in all: the contents move";
  EXPECT_EQ(16u, split.capacity());
  put(split, "cdefghijklmno");
  EXPECT_EQ(20u, split.reserve(4).second);
  EXPECT_EQ(15u + 4 + 1 + 16, split.capacity());
  EXPECT_EQ("abcdefghijklmno", take(split));
}

TEST(AesContext, BufferSizesAndVectors) {
  EXPECT_EQ(33u, aes_context::recommendedBufferSize(0));
  EXPECT_EQ(33u, aes_context::recommendedBufferSize(1));
  EXPECT_EQ(33u, aes_context::recommendedBufferSize(32));
  EXPECT_EQ(49u, aes_context::recommendedBufferSize(33));
  EXPECT_EQ(1025u, aes_context::recommendedBufferSize(1024));
  EXPECT_EQ(1041u, aes_context::recommendedBufferSize(1025));
  EXPECT_EQ(1041u, aes_context(1025).buffer().capacity());

  const secure_string a = aes_context::random_iv(), b = aes_context::random_iv();
  EXPECT_EQ(16u, a.size());
  EXPECT_NE(a, b);
}

// The cipher text is OpenSSL's own AES-256-CBC under the key padded with blanks, in any piece
// size and through the smallest ring.
TEST(AesContext, EncryptsAsOpenSslDoesUnderTheBlankPaddedKey) {
  const secure_string keys[] = {"abc", bytesOf(32, 7), bytesOf(70, 8)};
  for (const secure_string& key : keys) {
    for (std::size_t size : {0, 1, 15, 16, 17, 31, 33, 1000}) {
      for (std::size_t piece : {1, 16, 100, 5000}) {
        const secure_string plain = bytesOf(size, static_cast<unsigned>(size));
        aes_context context(1);
        const secure_string iv = context.init_for_encrypting(key);
        ASSERT_EQ(16u, iv.size());
        const secure_string cipher = encryptStreaming(context, plain, piece);
        EXPECT_EQ((size / 16 + 1) * 16, cipher.size()) << size;
        EXPECT_EQ(hex(referenceCbc(true, blankPadded(key.substr(0, 32)), iv, plain)), hex(cipher))
            << "key " << key.size() << " bytes, text " << size << ", pieces of " << piece;
      }
    }
  }
  // An empty message is one block, as a final call on nothing shows.
  aes_context context(0);
  context.init_for_encrypting("key");
  aes_context::range_type nothing(nullptr, 0);
  EXPECT_EQ(0u, context.encrypt_buffer(nothing));
  EXPECT_EQ(16u, context.encrypt_final(false));
}

// Decrypting takes the key as it stands: a short key is not padded, and is read no further
// than its end.
TEST(AesContext, DecryptsUnderTheKeyAsItStandsThroughThePullLoop) {
  const secure_string iv = bytesOf(16, 3);
  for (std::size_t size : {0, 1, 15, 16, 17, 32, 1000}) {
    const secure_string plain = bytesOf(size, 5);
    const secure_string cipher = referenceCbc(true, blankPadded("abc"), iv, plain);
    for (std::size_t room : {17, 33, 48, 100, 4096}) {
      aes_context context(64);
      context.init_for_decrypting(blankPadded("abc"), iv);
      EXPECT_EQ(hex(plain), hex(pull(context, cipher, room))) << "text " << size << ", room " << room;
    }
    aes_context unpadded(64);
    unpadded.init_for_decrypting("abc", iv);
    const secure_string wrong = pull(unpadded, cipher, 64);
    if (size != 0) {
      EXPECT_NE(hex(plain), hex(wrong)) << size;
    }
  }
}

TEST(AesContext, APullStepWithABlockOfRoomOrLessLeavesTheRingUnlessItIsEmpty) {
  const secure_string key = bytesOf(32, 1), iv = bytesOf(16, 2);
  aes_context context(64);
  context.init_for_decrypting(key, iv);
  const secure_string cipher = referenceCbc(true, key, iv, "hello");
  aes_context::range_type in(reinterpret_cast<unsigned char*>(const_cast<char*>(cipher.data())), cipher.size());
  context.buffer().write(in);

  unsigned char buffer[64];
  for (std::size_t room : {0, 15, 16}) {
    aes_context::range_type out(buffer, room);
    EXPECT_FALSE(context.decrypt_continue(out)) << room;
    EXPECT_EQ(16u, context.buffer().size()) << room;
    EXPECT_EQ(room, out.second) << room;
  }
  // The one block goes in, held back by the cipher for its padding: more is to come.
  aes_context::range_type out(buffer, 32);
  EXPECT_TRUE(context.decrypt_continue(out));
  EXPECT_TRUE(context.buffer().empty());
  EXPECT_EQ(32u, out.second);
  // With the ring empty, a block of room takes the end of the message.
  out = aes_context::range_type(buffer, 16);
  EXPECT_FALSE(context.decrypt_continue(out));
  EXPECT_EQ("hello", std::string(reinterpret_cast<char*>(buffer), 16 - out.second));
}

// A wrong key is no error: the padding check fails, the last block gives nothing, and nothing
// is left on OpenSSL's error queue for the next caller to find.
TEST(AesContext, AWrongKeyGivesWrongTextWithoutAReport) {
  const secure_string iv = bytesOf(16, 9), plain = bytesOf(100, 9);
  const secure_string cipher = referenceCbc(true, bytesOf(32, 1), iv, plain);
  ERR_clear_error();
  aes_context context(16);
  context.init_for_decrypting(bytesOf(32, 2), iv);
  const secure_string wrong = pull(context, cipher, 40);
  EXPECT_EQ(96u, wrong.size()) << "all blocks but the last";
  EXPECT_NE(plain.substr(0, 96), wrong);
  EXPECT_EQ(0u, ERR_peek_error());
}

// The copy of an open context has a cipher state of its own: both go on alike, and each is
// closed and destroyed once. Closing twice is harmless; a closed context turns text into nothing.
TEST(AesContext, ACopyOfAnOpenContextGoesOnByItself) {
  const secure_string plain = bytesOf(200, 4), head = plain.substr(0, 100), tail = plain.substr(100);
  aes_context original(32);
  const secure_string iv = original.init_for_encrypting("key");
  const secure_string start = encryptStreaming(original, head, 100, false);
  aes_context copy(original), assigned(4096);
  assigned = original;
  const std::string expected = hex(referenceCbc(true, blankPadded("key"), iv, plain));
  EXPECT_EQ(expected, hex(start + encryptStreaming(copy, tail, 7, true)));
  EXPECT_EQ(expected, hex(start + encryptStreaming(original, tail, 7, true)));
  original.close();
  original.close();
  EXPECT_EQ(expected, hex(start + encryptStreaming(assigned, tail, 50, true)));
  aes_context::range_type more(reinterpret_cast<unsigned char*>(const_cast<char*>(plain.data())), 50);
  EXPECT_EQ(0u, original.encrypt_buffer(more));
}

}  // namespace
