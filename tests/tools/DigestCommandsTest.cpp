// digest, crypt, pbkdf2 and key, each against the system's peer where there is one:
// sha256sum/sha512sum, the C library's crypt_r, `openssl kdf`.
#include "tests/tools/ToolTestSupport.h"

#include <zq/values/Base64.h>

#include <openssl/evp.h>

#include <crypt.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace zq {
namespace test {
namespace {

using DigestCommandsTest = ToolTest;

TEST_F(DigestCommandsTest, DigestLinesAreThoseOfSha256sumAndSha512sum) {
  ZQ_SKIP_WITHOUT("digest");
  file("a.txt", "abc");
  file("with space", std::string(100000, 'x'));
  file("back\\slash", "");
  const std::vector<std::string> files{"a.txt", "with space", "back\\slash"};

  std::vector<std::string> args{"digest"};
  args.insert(args.end(), files.begin(), files.end());
  std::vector<std::string> peer{"sha256sum"};
  peer.insert(peer.end(), files.begin(), files.end());
  Outcome mine = zq(args);
  ZQ_EXPECT_RUN(mine, 0);
  EXPECT_EQ(this->peer(peer).out, mine.out);
  file("sums", mine.out);
  ZQ_EXPECT_RUN(this->peer({"sha256sum", "-c", "sums"}), 0);

  // Names and numbers of the library, PBKDF2 settings standing for their digest.
  for (const std::string name : {"SHA-512", "sha-512", "12", "PBKDF2;SHA-512;1000"}) {
    mine = zq({"digest", "-a", name, "a.txt"});
    ZQ_EXPECT_RUN(mine, 0);
    EXPECT_EQ(this->peer({"sha512sum", "a.txt"}).out, mine.out) << name;
  }
  EXPECT_EQ(this->peer({"md5sum", "a.txt"}).out, zq({"digest", "-a", "MD5", "a.txt"}).out);

  // Standard input, for no file and for "-".
  const std::string stdinLine = this->peer({"sha256sum"}, "abc").out;
  EXPECT_EQ(stdinLine, zq({"digest"}, "abc").out);
  EXPECT_EQ(stdinLine, zq({"digest", "-"}, "abc").out);

  // Base64 of the same bytes.
  const std::string hex = mine.out.substr(0, 128);
  std::string raw;
  for (std::size_t i = 0; i < hex.size(); i += 2) raw += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  EXPECT_EQ(Base64::encode(raw, Base64::kNoLineBreaks) + "  a.txt\n",
            zq({"digest", "-a", "SHA-512", "--base64", "a.txt"}).out);
}

TEST_F(DigestCommandsTest, DigestReportsAMissingFileAndDoesTheOthers) {
  ZQ_SKIP_WITHOUT("digest");
  file("a", "1");
  file("b", "2");
  const Outcome run = zq({"digest", "a", "missing", "b", m_folder});
  ZQ_EXPECT_RUN(run, 1);
  EXPECT_EQ(peer({"sha256sum", "a", "b"}).out, run.out);
  EXPECT_NE(std::string::npos, run.err.find("zq: missing: No such file or directory\n")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("zq: " + m_folder + ": is a folder\n")) << run.err;
}

TEST_F(DigestCommandsTest, DigestNamesTheLibraryDoesNotKnowAreUsageErrors) {
  ZQ_SKIP_WITHOUT("digest");
  file("a", "1");
  for (const std::string name : {"nonsense", "0", "99", "5abc", "PBKDF2;nonsense;10", "PBKDF2;PBKDF2;MD5;1;1", ""}) {
    const Outcome run = zq({"digest", "-a", name, "a"});
    SCOPED_TRACE(name);
    ZQ_EXPECT_ERROR(run, 2);
    EXPECT_EQ("", run.out);
  }
}

TEST_F(DigestCommandsTest, ProgressShowsOnlyWhenForcedOffATerminal) {
  ZQ_SKIP_WITHOUT("digest");
  file("big", std::string((16 << 20) + 1, 'z'));
  Outcome run = zq({"digest", "big"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("", run.err);  // a pipe gets nothing of the bar
  run = zq({"digest", "--progress", "big"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_NE(std::string::npos, run.err.find("100%  16.0 MiB of 16.0 MiB")) << run.err;
  EXPECT_EQ(peer({"sha256sum", "big"}).out, run.out);
  ZQ_EXPECT_ERROR(zq({"digest", "--progress", "--no-progress", "big"}), 2);
}

// The digest A of SHA-crypt before its rounds begin (the published scheme's steps up to the
// alternate sum): the two schemes part at its first byte when that is 0x80 or above.
unsigned char firstByteBeforeRounds(const std::string& key, const std::string& salt, const EVP_MD* md) {
  const auto digest = [md](const std::vector<std::string>& parts) {
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_DigestInit_ex(context.get(), md, nullptr);
    for (const std::string& p : parts) EVP_DigestUpdate(context.get(), p.data(), p.size());
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_DigestFinal_ex(context.get(), out, &size);
    return std::string(reinterpret_cast<char*>(out), size);
  };
  const std::string b = digest({key, salt, key});
  std::vector<std::string> a{key, salt};
  std::size_t rest = key.size();
  for (; rest >= b.size(); rest -= b.size()) a.push_back(b);
  a.push_back(b.substr(0, rest));
  for (std::size_t bits = key.size(); bits > 0; bits >>= 1) a.push_back(bits & 1 ? b : key);
  return static_cast<unsigned char>(digest(a)[0]);
}

int alphabetIndex(char c) {
  static const std::string alphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return static_cast<int>(alphabet.find(c));
}

TEST_F(DigestCommandsTest, CryptAgreesWithTheSystemsCryptWhereTheSchemesAgree) {
  ZQ_SKIP_WITHOUT("crypt");
  int groupsCompared = 0;
  for (const char* scheme : {"$5$", "$6$"}) {
    const EVP_MD* md = scheme[1] == '5' ? EVP_sha256() : EVP_sha512();
    for (int k = 0; k < 12; ++k) {
      const std::string key = "key " + std::to_string(k);
      const std::string salt = "salt" + std::to_string(k * 7);
      if (firstByteBeforeRounds(key, salt, md) >= 0x80) continue;
      const std::string setting = scheme + salt;
      const Outcome mine = zq({"crypt", setting}, key + "\n");
      ZQ_EXPECT_RUN(mine, 0);
      crypt_data data{};
      const std::string system = crypt_r(key.c_str(), setting.c_str(), &data);
      ASSERT_EQ(system.size() + 1, mine.out.size()) << system << "\n" << mine.out;
      const std::size_t start = setting.size() + 1;
      EXPECT_EQ(system.substr(0, start), mine.out.substr(0, start));
      // The digests agree; their encodings agree in each group of three bytes below 0x80.
      for (std::size_t g = start; g + 4 <= system.size(); g += 4) {
        unsigned word = 0;
        for (int c = 3; c >= 0; --c) word = word << 6 | static_cast<unsigned>(alphabetIndex(system[g + c]));
        if ((word & 0x808080) != 0) continue;
        EXPECT_EQ(system.substr(g, 4), mine.out.substr(g, 4)) << setting << " key " << key;
        ++groupsCompared;
      }
    }
  }
  EXPECT_GT(groupsCompared, 0);
}

TEST_F(DigestCommandsTest, CryptMakesAndChecksHashes) {
  ZQ_SKIP_WITHOUT("crypt");
  Outcome run = zq({"crypt", "$5$abc"}, "secret\n");
  ZQ_EXPECT_RUN(run, 0);
  const std::string hash = run.out.substr(0, run.out.size() - 1);
  EXPECT_EQ(0u, hash.rfind("$5$abc$", 0));
  EXPECT_EQ(7u + 43, hash.size());
  ZQ_EXPECT_RUN(zq({"crypt", "--check", hash}, "secret\n"), 0);
  ZQ_EXPECT_RUN(zq({"crypt", "--check", hash}, "secret"), 0);  // the line end is optional
  run = zq({"crypt", "--check", hash}, "Secret\n");
  ZQ_EXPECT_RUN(run, 1);
  EXPECT_EQ("", run.out + run.err);

  // Fresh settings: SHA-512, 16 random characters of salt; the salt may hold "$".
  run = zq({"crypt"}, "secret\n");
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ(3u + 16 + 1 + 86 + 1, run.out.size()) << run.out;
  EXPECT_EQ(0u, run.out.rfind("$6$", 0));
  EXPECT_NE(run.out, zq({"crypt"}, "secret\n").out);
  for (const std::string& made :
       {run.out, zq({"crypt", "$5$ab$cd"}, "k\n").out, zq({"crypt", "$6$rounds=1000$x"}, "k\n").out}) {
    const std::string stored = made.substr(0, made.size() - 1);
    ZQ_EXPECT_RUN(zq({"crypt", "--check", stored}, made == run.out ? "secret\n" : "k\n"), 0);
  }

  for (const std::vector<std::string>& wrong : {std::vector<std::string>{"crypt", "$1$abc"},
                                                {"crypt", "--check", "nohash"},
                                                {"crypt", "--check", "$5$x", "$5$y"}}) {
    ZQ_EXPECT_ERROR(zq(wrong, "k\n"), 2);
  }
}

TEST_F(DigestCommandsTest, Pbkdf2EqualsOpensslKdf) {
  ZQ_SKIP_WITHOUT("pbkdf2");
  const auto opensslKdf = [this](const std::string& digest, int iterations) {
    std::string out = peer({"openssl", "kdf", "-keylen", "64", "-kdfopt", "digest:" + digest, "-kdfopt", "pass:secret",
                            "-kdfopt", "salt:NaCl", "-kdfopt", "iter:" + std::to_string(iterations), "PBKDF2"})
                          .out;
    out.erase(std::remove(out.begin(), out.end(), ':'), out.end());
    out = out.substr(0, out.find('\n') + 1);
    std::transform(out.begin(), out.end(), out.begin(), [](char c) { return std::tolower(c); });
    return out;
  };
  Outcome run = zq({"pbkdf2", "--salt", "NaCl", "-i", "1000"}, "secret\n");
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ(opensslKdf("SHA256", 1000), run.out);
  EXPECT_EQ(opensslKdf("SHA512", 2), zq({"pbkdf2", "--salt", "NaCl", "-a", "SHA-512", "-i", "2"}, "secret\n").out);
  // A PBKDF2 setting brings its count; -i overrides it.
  EXPECT_EQ(opensslKdf("SHA512", 3), zq({"pbkdf2", "--salt", "NaCl", "-a", "PBKDF2;SHA-512;3"}, "secret\n").out);
  EXPECT_EQ(opensslKdf("SHA1", 10000), zq({"pbkdf2", "--salt", "NaCl", "-a", "SHA-1"}, "secret\n").out);

  ZQ_EXPECT_ERROR(zq({"pbkdf2"}, "secret\n"), 2);
  ZQ_EXPECT_ERROR(zq({"pbkdf2", "--salt", "s", "-i", "0"}, "secret\n"), 2);
  ZQ_EXPECT_ERROR(zq({"pbkdf2", "--salt", "s", "-a", "sha-3"}, "secret\n"), 2);
}

TEST_F(DigestCommandsTest, KeysAreRandomOrSpunFromASeed) {
  Outcome run = zq({"key"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ(65u, run.out.size());
  EXPECT_EQ(std::string::npos, run.out.find_first_not_of("0123456789abcdef\n"));
  EXPECT_NE(run.out, zq({"key"}).out);
  EXPECT_EQ(11u, zq({"key", "--bytes", "5"}).out.size());
  ZQ_EXPECT_ERROR(zq({"key", "--seed", "s"}), 2);  // a seeded key names its size

  if (zq({"key", "--seed", "s", "--bytes", "4"}).exitCode != 0) GTEST_SKIP() << "this zq has no seeded keys";
  const std::string seeded = zq({"key", "--seed", "shared text", "--bytes", "32"}).out;
  EXPECT_EQ(65u, seeded.size());
  EXPECT_EQ(seeded, zq({"key", "--seed", "shared text", "--bytes", "32", "--salt", "0"}).out);
  EXPECT_NE(seeded, zq({"key", "--seed", "shared text", "--bytes", "32", "--salt", "1"}).out);
  EXPECT_NE(seeded, zq({"key", "--seed", "shared texT", "--bytes", "32"}).out);
}

}  // namespace
}  // namespace test
}  // namespace zq
