// The rsa commands, with the openssl command reading what they write.
#include "tests/tools/ToolTestSupport.h"

#include <zq/values/Base64.h>

#include <sys/stat.h>

namespace zq {
namespace test {
namespace {

// Binary-safe: the string form of the decoder stops at a zero byte.
std::string fromBase64(const std::string& text) {
  std::string bytes(Base64::calcDencodedLength(text.data(), text.size()), '\0');
  bytes.resize(Base64::decode(text.data(), text.size(), reinterpret_cast<unsigned char*>(&bytes[0]), bytes.size()));
  return bytes;
}

// One key pair for the whole suite: generating keys is the slow part.
class RsaCommandsTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    if (lacks("rsa")) GTEST_SKIP() << "this zq has no 'rsa' command";
    file("pass", "pass phrase\nignored second line\n");
    const Outcome made = zq({"rsa", "genkey", "--bits", "1024", "--out", "key.pem", "--pass-file", "pass"});
    ASSERT_EQ(0, made.exitCode) << made.describe();
    const Outcome pub = zq({"rsa", "pub", "key.pem", "--pass-file", "pass"});
    ASSERT_EQ(0, pub.exitCode) << pub.describe();
    file("pub.pem", pub.out);
  }
};

TEST_F(RsaCommandsTest, KeysAreReadByOpenssl) {
  struct stat info {};
  ::stat(path("key.pem").c_str(), &info);
  EXPECT_EQ(0600u, info.st_mode & 07777);
  EXPECT_NE(std::string::npos, readFile(path("key.pem")).find("BEGIN ENCRYPTED PRIVATE KEY"));
  ZQ_EXPECT_RUN(peer({"openssl", "rsa", "-check", "-noout", "-in", "key.pem", "-passin", "pass:pass phrase"}), 0);
  const Outcome pub = peer({"openssl", "rsa", "-RSAPublicKey_in", "-pubin", "-in", "pub.pem", "-noout", "-text"});
  ZQ_EXPECT_RUN(pub, 0);
  EXPECT_NE(std::string::npos, pub.out.find("Public-Key: (1024 bit)")) << pub.out;

  // The default size, with the pass phrase on standard input.
  ZQ_EXPECT_RUN(zq({"rsa", "genkey", "--out", "big.pem"}, "other\n"), 0);
  const Outcome big = peer({"openssl", "rsa", "-in", "big.pem", "-passin", "pass:other", "-noout", "-text"});
  EXPECT_NE(std::string::npos, big.out.find("Private-Key: (3072 bit")) << big.describe();
}

TEST_F(RsaCommandsTest, SignaturesVerifyAndCarryTheFilesDigest) {
  file("data", "signed content");
  Outcome signature = zq({"rsa", "sign", "--key", "key.pem", "--pass-file", "pass", "data"});
  ZQ_EXPECT_RUN(signature, 0);
  file("sig", signature.out);
  Outcome run = zq({"rsa", "verify", "--key", "pub.pem", "--signature", "sig", "data"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("data: OK\n", run.out);

  // What the private key encrypted is the raw SHA-256 digest.
  file("sig.bin", fromBase64(signature.out));
  const Outcome recovered =
      peer({"openssl", "pkeyutl", "-verifyrecover", "-inkey", "key.pem", "-passin", "file:pass", "-in", "sig.bin"});
  ZQ_EXPECT_RUN(recovered, 0);
  const Outcome digest = peer({"openssl", "dgst", "-sha256", "-binary", "data"});
  EXPECT_TRUE(digest.out == recovered.out) << "the signature holds something else";

  // Signatures hold zero bytes now and then: in 12 of them one almost surely has some.
  for (int i = 0; i < 12; ++i) {
    file("more", "content " + std::to_string(i));
    file("more.sig", zq({"rsa", "sign", "--key", "key.pem", "--pass-file", "pass", "more"}).out);
    ZQ_EXPECT_RUN(zq({"rsa", "verify", "--key", "pub.pem", "--signature", "more.sig", "more"}), 0);
  }

  file("data", "signed content, changed");
  run = zq({"rsa", "verify", "--key", "pub.pem", "--signature", "sig", "data"});
  ZQ_EXPECT_RUN(run, 1);
  EXPECT_EQ("data: FAILED\n", run.out);
  file("sig", "not base64 at all!");
  ZQ_EXPECT_ERROR(zq({"rsa", "verify", "--key", "pub.pem", "--signature", "sig", "data"}), 1);
}

TEST_F(RsaCommandsTest, ShortMessagesRoundTripAndOpensslDecryptsThem) {
  const std::string message("a short message\0 with a zero byte", 33);
  const Outcome cipher = zq({"rsa", "encrypt", "--key", "pub.pem"}, message);
  ZQ_EXPECT_RUN(cipher, 0);
  file("cipher", cipher.out);
  Outcome plain = zq({"rsa", "decrypt", "--key", "key.pem", "--pass-file", "pass"}, cipher.out);
  ZQ_EXPECT_RUN(plain, 0);
  EXPECT_TRUE(plain.out == message);
  file("cipher.bin", fromBase64(cipher.out));
  const Outcome openssl =
      peer({"openssl", "pkeyutl", "-decrypt", "-inkey", "key.pem", "-passin", "file:pass", "-in", "cipher.bin"});
  ZQ_EXPECT_RUN(openssl, 0);
  EXPECT_TRUE(openssl.out == message);

  // 1024 bits take 128 - 12 bytes; nothing is cut silently, and nothing is taken for nothing.
  ZQ_EXPECT_RUN(zq({"rsa", "encrypt", "--key", "pub.pem"}, std::string(116, 'x')), 0);
  ZQ_EXPECT_ERROR(zq({"rsa", "encrypt", "--key", "pub.pem"}, std::string(117, 'x')), 1);
  ZQ_EXPECT_ERROR(zq({"rsa", "encrypt", "--key", "pub.pem"}, ""), 1);
}

TEST_F(RsaCommandsTest, WrongKeysPassPhrasesAndFilesFailCleanly) {
  file("data", "x");
  file("wrong", "wrong\n");
  file("text", "no key here");
  const Outcome cipher = zq({"rsa", "encrypt", "--key", "pub.pem"}, "m");
  ZQ_EXPECT_RUN(zq({"rsa", "genkey", "--bits", "1024", "--out", "other.pem", "--pass-file", "pass"}), 0);

  const std::vector<std::pair<std::vector<std::string>, std::string>> failing = {
      {{"rsa", "pub", "key.pem", "--pass-file", "wrong"}, ""},
      {{"rsa", "pub", "pub.pem", "--pass-file", "pass"}, ""},
      {{"rsa", "pub", "missing.pem", "--pass-file", "pass"}, ""},
      {{"rsa", "sign", "--key", "text", "--pass-file", "pass", "data"}, ""},
      {{"rsa", "verify", "--key", "key.pem", "--signature", "data", "data"}, ""},
      {{"rsa", "encrypt", "--key", "text"}, "m"},
      {{"rsa", "decrypt", "--key", "other.pem", "--pass-file", "pass"}, cipher.out},
      {{"rsa", "genkey", "--bits", "1024", "--out", "key.pem", "--pass-file", "pass"}, ""},  // exists
  };
  for (const auto& c : failing) {
    SCOPED_TRACE(c.first[1] + " " + c.first[2] + " " + c.first[3]);
    ZQ_EXPECT_ERROR(zq(c.first, c.second), 1);
  }
  EXPECT_NE(std::string::npos, zq(failing[6].first, cipher.out).err.find("wrong key or not encrypted data"));

  // Standard input carries the data: the pass phrase needs a terminal, and there is none.
  ZQ_EXPECT_ERROR(zq({"rsa", "decrypt", "--key", "key.pem"}, cipher.out), 2);
  ZQ_EXPECT_ERROR(zq({"rsa", "genkey", "--bits", "100", "--out", "small.pem"}, "p\n"), 2);
  ZQ_EXPECT_ERROR(zq({"rsa", "sign", "data"}), 2);
  const std::vector<std::string> expected{"pass", "key.pem", "pub.pem", "data", "wrong", "text", "other.pem"};
  EXPECT_EQ(expected.size(), folderEntries(m_folder).size());
}

}  // namespace
}  // namespace test
}  // namespace zq
