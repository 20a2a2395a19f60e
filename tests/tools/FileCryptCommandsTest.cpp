// encrypt and decrypt: round trips, the openssl enc command reading and writing the same form,
// and bad input that must leave every file as it was.
#include "tests/tools/ToolTestSupport.h"

#include <sys/stat.h>
#include <unistd.h>

namespace zq {
namespace test {
namespace {

class FileCryptCommandsTest : public ToolTest {
 protected:
  static std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char c : bytes) text += std::string{digits[c >> 4], digits[c & 15]};
    return text;
  }
  // A pass phrase as the tool uses it: blanks up to 64 bytes, of which AES takes 32.
  static std::string aesKeyHex(const std::string& passPhrase) {
    return hex((passPhrase + std::string(64, ' ')).substr(0, 32));
  }
};

TEST_F(FileCryptCommandsTest, RoundTripsFileToFileAndInPlace) {
  ZQ_SKIP_WITHOUT("encrypt");
  for (const std::size_t size : {0, 15, 16, 17, 100000}) {
    SCOPED_TRACE(size);
    std::string plain(size, '\0');
    for (std::size_t i = 0; i < size; ++i) plain[i] = static_cast<char>(i * 7);
    const std::string source = file("plain", plain);
    ::chmod(source.c_str(), 0640);

    ZQ_EXPECT_RUN(zq({"encrypt", "plain", "plain.enc"}, "pass phrase\n"), 0);
    const std::string encrypted = readFile(path("plain.enc"));
    EXPECT_EQ(16 + (size / 16 + 1) * 16, encrypted.size());
    ZQ_EXPECT_RUN(zq({"decrypt", "plain.enc", "plain.out"}, "pass phrase\n"), 0);
    EXPECT_EQ(plain, readFile(path("plain.out")));

    ZQ_EXPECT_RUN(zq({"encrypt", "plain"}, "pass phrase\n"), 0);
    EXPECT_EQ(encrypted.size(), readFile(source).size());
    EXPECT_NE(encrypted, readFile(source));  // a fresh vector each time
    ZQ_EXPECT_RUN(zq({"decrypt", "plain"}, "pass phrase\n"), 0);
    EXPECT_EQ(plain, readFile(source));
    struct stat info {};
    ::stat(source.c_str(), &info);
    EXPECT_EQ(0640u, info.st_mode & 07777);
  }
  const std::vector<std::string> left = folderEntries(m_folder);
  EXPECT_EQ(3u, left.size()) << "temporary files left behind";
}

TEST_F(FileCryptCommandsTest, InPlaceEncryptionZeroesThePlainTextUnlessItHasAnotherName) {
  ZQ_SKIP_WITHOUT("encrypt");
  const std::string plain(5000, 'p');
  file("plain", plain);
  std::ifstream old(path("plain"), std::ios::binary);  // still reads the replaced content
  ZQ_EXPECT_RUN(zq({"encrypt", "plain"}, "k\n"), 0);
  const std::string left((std::istreambuf_iterator<char>(old)), std::istreambuf_iterator<char>());
  EXPECT_EQ(std::string(8192, '\0'), left);

  file("linked", plain);
  ASSERT_EQ(0, ::link(path("linked").c_str(), path("other name").c_str()));
  ZQ_EXPECT_RUN(zq({"encrypt", "linked"}, "k\n"), 0);
  EXPECT_EQ(plain, readFile(path("other name")));
  EXPECT_NE(plain, readFile(path("linked")));
}

TEST_F(FileCryptCommandsTest, OpensslEncReadsAndWritesTheSameForm) {
  ZQ_SKIP_WITHOUT("encrypt");
  const std::string plain = "the same bytes on both sides\n" + std::string(5000, 'q');
  file("plain", plain);
  ZQ_EXPECT_RUN(zq({"encrypt", "plain", "enc"}, "abc\n"), 0);
  const std::string encrypted = readFile(path("enc"));
  file("cipher", encrypted.substr(16));
  const Outcome openssl = peer({"openssl", "enc", "-d", "-aes-256-cbc", "-K", aesKeyHex("abc"), "-iv",
                                hex(encrypted.substr(0, 16)), "-in", "cipher"});
  ZQ_EXPECT_RUN(openssl, 0);
  EXPECT_TRUE(openssl.out == plain) << "openssl enc read something else";

  // And back: the vector in front of what openssl wrote, under a key from a file.
  const std::string key(32, 'K');
  file("key", key);
  const std::string iv = "0123456789abcdef";
  const Outcome made = peer({"openssl", "enc", "-aes-256-cbc", "-K", hex(key), "-iv", hex(iv), "-in", "plain"});
  file("theirs", iv + made.out);
  ZQ_EXPECT_RUN(zq({"decrypt", "--key-file", "key", "theirs", "ours"}), 0);
  EXPECT_TRUE(readFile(path("ours")) == plain);
}

TEST_F(FileCryptCommandsTest, DigestOptionPrintsThePlainTextsDigest) {
  ZQ_SKIP_WITHOUT("encrypt");
  file("plain", "digest me");
  const std::string expected = peer({"sha256sum", "plain"}).out;
  Outcome run = zq({"encrypt", "--digest", "SHA-256", "plain", "enc"}, "k\n");
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ(expected, run.out);
  run = zq({"decrypt", "--digest", "sha-256", "enc", "plain"}, "k\n");
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ(expected, run.out);
  ZQ_EXPECT_ERROR(zq({"encrypt", "--digest", "nonsense", "plain", "enc"}, "k\n"), 2);
}

TEST_F(FileCryptCommandsTest, AWrongKeyOrPlainDataLeavesEveryFileAsItWas) {
  ZQ_SKIP_WITHOUT("decrypt");
  // Made by openssl with a fixed vector, so that whether a wrong key passes the padding check
  // is settled once and for all.
  file("plain", "a secret that must stay whole");
  const std::string iv(16, 'v');
  file("enc",
       iv + peer({"openssl", "enc", "-aes-256-cbc", "-K", aesKeyHex("right"), "-iv", hex(iv), "-in", "plain"}).out);
  const std::string before = readFile(path("enc"));
  file("notes", std::string(100, 'n'));

  struct Case {
    std::vector<std::string> args;
    std::string key;
  };
  for (const Case& c : {Case{{"decrypt", "enc", "out"}, "wrong\n"}, Case{{"decrypt", "enc"}, "wrong\n"},
                        Case{{"decrypt", "notes", "out"}, "right\n"}, Case{{"decrypt", "plain"}, "right\n"}}) {
    const Outcome run = zq(c.args, c.key);
    SCOPED_TRACE(c.args[1]);
    ZQ_EXPECT_ERROR(run, 1);
    EXPECT_NE(std::string::npos, run.err.find("wrong key or not encrypted data")) << run.err;
  }
  EXPECT_EQ(before, readFile(path("enc")));
  EXPECT_EQ(3u, folderEntries(m_folder).size()) << "a file was left behind";
  ZQ_EXPECT_RUN(zq({"decrypt", "enc", "out"}, "right\n"), 0);
  EXPECT_EQ("a secret that must stay whole", readFile(path("out")));
}

TEST_F(FileCryptCommandsTest, MissingFilesAndKeysAndUnwritableTargetsFailCleanly) {
  ZQ_SKIP_WITHOUT("encrypt");
  file("plain", "data");
  file("empty", "");
  const std::vector<std::vector<std::string>> failing = {
      {"encrypt", "missing", "out"},
      {"encrypt", m_folder, "out"},
      {"encrypt", "plain", "no/such/folder/out"},
      {"encrypt", "--key-file", "missing", "plain", "out"},
      {"encrypt", "--key-file", "empty", "plain", "out"},
      {"decrypt", "missing"},
  };
  for (const auto& args : failing) {
    SCOPED_TRACE(args[1] + " " + args.back());
    ZQ_EXPECT_ERROR(zq(args, "k\n"), 1);
  }
  ZQ_EXPECT_ERROR(zq({"encrypt", "plain", "out"}, ""), 1);  // no pass phrase
  ZQ_EXPECT_ERROR(zq({"encrypt"}, "k\n"), 2);
  if (::geteuid() != 0) {
    ::mkdir(path("locked").c_str(), 0500);
    ZQ_EXPECT_ERROR(zq({"encrypt", "plain", "locked/out"}, "k\n"), 1);
  }
  EXPECT_EQ("data", readFile(path("plain")));
  std::vector<std::string> left = folderEntries(m_folder);
  left.erase(std::remove(left.begin(), left.end(), "locked"), left.end());
  EXPECT_EQ(2u, left.size()) << "a file was left behind";
}

TEST_F(FileCryptCommandsTest, ProgressFollowsTheFileBeingWritten) {
  ZQ_SKIP_WITHOUT("encrypt");
  file("plain", std::string(1 << 20, 'p'));
  Outcome run = zq({"encrypt", "--progress", "plain", "enc"}, "k\n");
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_NE(std::string::npos, run.err.find("100%")) << run.err;
  run = zq({"decrypt", "enc", "out"}, "k\n");
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("", run.err);
}

}  // namespace
}  // namespace test
}  // namespace zq
