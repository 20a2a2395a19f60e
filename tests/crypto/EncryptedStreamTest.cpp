#include <zq/crypto/EncryptedStream.h>

#include "tests/crypto/AesTestSupport.h"
#include "tests/support/ChildProcess.h"

#include <boost/iostreams/copy.hpp>
#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/filtering_stream.hpp>

#include <csignal>
#include <ios>
#include <stdexcept>
#include <string>

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

namespace {

namespace fs = boost::filesystem;
namespace crypto = zq::crypto;
using crypto::MessageDigest;
using crypto::secure_string;
using zq::test::blankPadded;
using zq::test::bytesOf;
using zq::test::hex;
using zq::test::readFile;
using zq::test::referenceCbc;
using zq::test::TempFolder;
using zq::test::writeFile;

const secure_string kKey = bytesOf(64, 42);

std::size_t encryptedSize(std::size_t plain) { return 16 + (plain / 16 + 1) * 16; }

secure_string digestOf(const secure_string& bytes) {
  MessageDigest digest;
  digest.append(bytes.data(), bytes.size());
  return digest.digest();
}

TEST(EncryptedString, RoundTripsTextsOfEverySizeInTheOpenSslForm) {
  for (std::size_t size : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 31, 32, 33, 1000, 100000}) {
    const secure_string plain = bytesOf(size, static_cast<unsigned>(size));
    const secure_string cipher = crypto::encrypt(plain, kKey);
    ASSERT_EQ(encryptedSize(size), cipher.size()) << size;
    EXPECT_EQ(hex(plain), hex(crypto::decrypt(cipher, kKey))) << size;
    EXPECT_EQ(hex(plain), hex(referenceCbc(false, kKey.substr(0, 32), cipher.substr(0, 16), cipher.substr(16))))
        << "vector in front, then OpenSSL's AES-256-CBC; text of " << size;
  }
  // A fresh vector each time, and so different cipher text throughout.
  const secure_string a = crypto::encrypt("same text", kKey), b = crypto::encrypt("same text", kKey);
  EXPECT_NE(a.substr(0, 16), b.substr(0, 16));
  EXPECT_NE(a.substr(16), b.substr(16));
}

TEST(EncryptedString, BadInputGivesWhatTheFormAllows) {
  try {
    crypto::decrypt(secure_string(15, 'x'), kKey);
    ADD_FAILURE() << "no exception for 15 bytes";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ("invalid string position", e.what());
  }
  EXPECT_EQ("", crypto::decrypt(secure_string(16, 'x'), kKey)) << "a vector alone: an empty text";

  const secure_string plain = bytesOf(100, 1), cipher = crypto::encrypt(plain, kKey);
  const secure_string wrong = crypto::decrypt(cipher, bytesOf(64, 43));
  EXPECT_NE(plain.substr(0, wrong.size()), wrong) << "a wrong key: wrong text, and no exception";
  EXPECT_NO_THROW(crypto::decrypt(cipher.substr(0, cipher.size() - 5), kKey)) << "cipher text cut short";

  // A short key is padded with blanks to encrypt but taken as it stands to decrypt.
  const secure_string underShortKey = crypto::encrypt(plain, "abc");
  EXPECT_EQ(plain, crypto::decrypt(underShortKey, blankPadded("abc")));
  EXPECT_NE(plain, crypto::decrypt(underShortKey, "abc"));
}

class EncryptedFile : public ::testing::Test {
 protected:
  TempFolder folder;
  const fs::path plainFile = folder / "plain";
  const fs::path cipherFile = folder / "cipher";
  const fs::path backFile = folder / "back";
};

TEST_F(EncryptedFile, RoundTripsFilesOfEverySizeWithDigestsThatAgree) {
  for (std::size_t size : {0, 1, 15, 16, 17, 100, 4096, 3 * 65536 + 5, 1000003}) {
    const secure_string plain = bytesOf(size, static_cast<unsigned>(size));
    writeFile(plainFile, plain);
    MessageDigest d, e;
    crypto::encrypt(plainFile, cipherFile, kKey, &d);
    ASSERT_EQ(encryptedSize(size), fs::file_size(cipherFile)) << size;
    crypto::decrypt(cipherFile, backFile, kKey, &e);
    EXPECT_EQ(size, fs::file_size(backFile));
    EXPECT_TRUE(plain == readFile(backFile)) << size;
    EXPECT_EQ(size, d.count());
    EXPECT_EQ(size, e.count());
    EXPECT_EQ(hex(digestOf(plain)), hex(d.digest())) << size;
    EXPECT_EQ(hex(digestOf(plain)), hex(e.digest())) << size;
    // The file form is the string form.
    EXPECT_TRUE(plain == crypto::decrypt(readFile(cipherFile), kKey)) << size;
  }
  crypto::encrypt(plainFile, cipherFile, kKey, nullptr);
  crypto::decrypt(cipherFile, backFile, kKey, nullptr);
  EXPECT_TRUE(readFile(plainFile) == readFile(backFile));
}

// The user's guarantee: the openssl command reads our files, and we read its output with the
// vector put in front.
TEST_F(EncryptedFile, InteroperatesWithTheOpensslCommand) {
  const secure_string key = "correct horse battery";
  const std::string hexKey = hex(blankPadded(key));
  const secure_string plain = bytesOf(100007, 11);
  writeFile(plainFile, plain);

  crypto::encrypt(plainFile, cipherFile, key, nullptr);
  const secure_string ours = readFile(cipherFile);
  writeFile(folder / "body", ours.substr(16));
  auto result =
      zq::test::runChild({"openssl", "enc", "-d", "-aes-256-cbc", "-K", hexKey, "-iv", hex(ours.substr(0, 16)), "-in",
                          (folder / "body").string(), "-out", backFile.string()});
  ASSERT_EQ(0, result.exitCode) << result.output;
  EXPECT_TRUE(plain == readFile(backFile)) << "openssl enc -d reads what follows the vector";

  const secure_string iv = bytesOf(16, 12);
  result = zq::test::runChild({"openssl", "enc", "-aes-256-cbc", "-K", hexKey, "-iv", hex(iv), "-in",
                               plainFile.string(), "-out", (folder / "body").string()});
  ASSERT_EQ(0, result.exitCode) << result.output;
  writeFile(cipherFile, iv + readFile(folder / "body"));
  fs::remove(backFile);
  crypto::decrypt(cipherFile, backFile, blankPadded(key), nullptr);
  EXPECT_TRUE(plain == readFile(backFile)) << "openssl's cipher text behind its vector decrypts";
}

// Missing sources and targets that can't be opened are no errors; short files decrypt as empty.
TEST_F(EncryptedFile, BadInputAsTheFormAllows) {
  crypto::encrypt(folder / "missing", cipherFile, kKey, nullptr);
  EXPECT_EQ(32u, fs::file_size(cipherFile)) << "the vector and one block of padding";
  EXPECT_NO_THROW(crypto::encrypt(cipherFile, folder / "no" / "such", kKey, nullptr));
  EXPECT_NO_THROW(crypto::decrypt(cipherFile, folder / "no" / "such", kKey, nullptr));
  EXPECT_FALSE(fs::exists(folder / "no"));

  for (std::size_t size : {0, 5, 16}) {
    writeFile(cipherFile, secure_string(size, 'c'));
    MessageDigest d;
    crypto::decrypt(cipherFile, backFile, kKey, &d);
    EXPECT_EQ(0u, fs::file_size(backFile)) << size;
    EXPECT_EQ(0u, d.count());
  }

  writeFile(plainFile, bytesOf(1000, 3));
  crypto::encrypt(plainFile, cipherFile, kKey, nullptr);
  crypto::decrypt(cipherFile, backFile, bytesOf(64, 4), nullptr);
  EXPECT_FALSE(readFile(plainFile) == readFile(backFile)) << "a wrong key gives wrong text without a word";
}

// The filters in chains of a caller's own, over strings instead of files.
TEST(EncryptingFilters, WorkInTheCallersOwnChains) {
  namespace io = boost::iostreams;
  const secure_string plain = bytesOf(5000, 6);
  std::string cipher;
  MessageDigest sent, received;
  {
    crypto::aes_context context(100);
    const secure_string iv = context.init_for_encrypting(kKey);
    cipher.assign(iv.data(), iv.size());
    io::filtering_ostream out;
    out.push(crypto::digesting_output_filter(&sent));
    out.push(crypto::encrypting_output_filter(&context));
    out.push(io::back_inserter(cipher));
    for (std::size_t at = 0; at < plain.size(); at += 777)
      out.write(&plain[at], std::min<std::size_t>(777, plain.size() - at));
    out.reset();  // closes the chain: the last block
  }
  ASSERT_EQ(encryptedSize(plain.size()), cipher.size());
  EXPECT_TRUE(plain == crypto::decrypt(secure_string(cipher.data(), cipher.size()), kKey));

  std::string back;
  {
    crypto::aes_context context(10);
    context.init_for_decrypting(kKey, secure_string(cipher.data(), 16));
    io::filtering_istream in;
    in.push(crypto::digesting_input_filter(&received));
    in.push(crypto::decrypting_input_filter(&context), 40);
    in.push(io::array_source(cipher.data() + 16, cipher.size() - 16));
    io::copy(in, io::back_inserter(back));
  }
  EXPECT_TRUE(plain == secure_string(back.data(), back.size()));
  EXPECT_EQ(sent.digest(), received.digest());
}

// ---- in place ----

class EncryptedFileInPlace : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::permissions(folder.path(), fs::perms(0755));
    writeFile(file, original);
  }

  // The file holds what it held, and nothing was left beside it.
  void expectUntouched(const std::string& listing = "data ") {
    EXPECT_TRUE(original == readFile(file)) << "the file was changed";
    EXPECT_EQ(listing, folder.listing());
  }

  TempFolder folder;
  const fs::path file = folder / "data";
  const secure_string original = bytesOf(300000, 21);
};

TEST_F(EncryptedFileInPlace, ReplacesTheContentZeroesTheOldAndLeavesNothingBehind) {
  fs::create_hard_link(file, folder / "link");  // sees what becomes of the old content
  fs::permissions(file, fs::perms(0640));
  MessageDigest d, e;
  crypto::encrypt(file, kKey, &d);
  EXPECT_EQ(encryptedSize(original.size()), fs::file_size(file));
  EXPECT_EQ("data link ", folder.listing());
  EXPECT_EQ(fs::perms(0640), fs::status(file).permissions());
  const std::size_t rounded = (original.size() + 4095) / 4096 * 4096;
  EXPECT_TRUE(secure_string(rounded, '\0') == readFile(folder / "link")) << "one pass of zeros over the old content";

  crypto::decrypt(file, kKey, &e);
  EXPECT_TRUE(original == readFile(file));
  EXPECT_EQ(original.size(), d.count());
  EXPECT_EQ(d.digest(), e.digest());
  EXPECT_EQ("data link ", folder.listing());
}

TEST_F(EncryptedFileInPlace, AMissingFileThrowsAndMakesNothing) {
  EXPECT_THROW(crypto::encrypt(folder / "missing", kKey, nullptr), fs::filesystem_error);
  EXPECT_THROW(crypto::decrypt(folder / "missing", kKey, nullptr), fs::filesystem_error);
  expectUntouched();
}

// How a call in a child ended.
enum Outcome { k_noException = 0, k_filesystemError = 10, k_iosFailure = 11, k_otherError = 12, k_cannotTest = 77 };

int outcomeOf(const std::function<void()>& call) {
  try {
    call();
    return k_noException;
  } catch (const fs::filesystem_error&) {
    return k_filesystemError;
  } catch (const std::ios_base::failure&) {
    return k_iosFailure;
  } catch (const std::exception&) {
    return k_otherError;
  }
}

// Encrypts or decrypts `file` in place, or into a target beside it.
void transform(const fs::path& file, bool encrypting, bool inPlace) {
  const fs::path target = file.parent_path() / "target";
  if (inPlace) {
    encrypting ? crypto::encrypt(file, kKey, nullptr) : crypto::decrypt(file, kKey, nullptr);
  } else {
    encrypting ? crypto::encrypt(file, target, kKey, nullptr) : crypto::decrypt(file, target, kKey, nullptr);
  }
}

// Tests run as root, whom permission bits don't stop: the child becomes "nobody". In a folder of
// mode 0755 it can make no new file; in a sticky one it can, but not rename it over root's file.
TEST_F(EncryptedFileInPlace, AFolderThatRefusesANewFileOrTheReplacementLeavesTheFileAsItWas) {
  fs::permissions(file, fs::perms(0666));
  for (const fs::perms mode : {fs::perms(0755), fs::perms(01777)}) {
    fs::permissions(folder.path(), mode);
    for (bool encrypting : {true, false}) {
      const int outcome = zq::test::inChild([&] {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0) return int(k_cannotTest);
        return outcomeOf([&] { transform(file, encrypting, true); });
      });
      if (outcome == k_cannotTest) GTEST_SKIP() << "can't become nobody";
      EXPECT_EQ(k_filesystemError, outcome) << "folder mode " << std::oct << mode << ", encrypting " << encrypting;
      expectUntouched();
    }
  }
}

// A full disk, here a file-size limit: in place, the file stays as it was; file to file, the
// half-written target goes. Either way no endless retry of a write that can't be made.
TEST_F(EncryptedFileInPlace, AFullDiskLeavesTheFileAsItWas) {
  for (bool inPlace : {true, false}) {
    for (bool encrypting : {true, false}) {
      const int outcome = zq::test::inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100000, 100000};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return int(k_cannotTest);
        return outcomeOf([&] { transform(file, encrypting, inPlace); });
      });
      EXPECT_EQ(k_iosFailure, outcome) << "in place " << inPlace << ", encrypting " << encrypting;
      expectUntouched();
    }
  }
}

// The same on a real full file system, a small tmpfs, where one can be mounted.
TEST_F(EncryptedFileInPlace, AFullFileSystemLeavesTheFileAsItWas) {
  const fs::path small = folder / "small", inside = small / "data";
  fs::create_directory(small);
  const int outcome = zq::test::inChild([&] {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", small.c_str(), "tmpfs", 0, "size=512k") != 0) {
      return int(k_cannotTest);
    }
    writeFile(inside, original);
    const int result = outcomeOf([&] { transform(inside, true, true); });
    return original == readFile(inside) && std::distance(fs::directory_iterator(small), {}) == 1 ? result : 20;
  });
  if (outcome == k_cannotTest) GTEST_SKIP() << "no tmpfs can be mounted here";
  EXPECT_EQ(k_iosFailure, outcome) << "20: the file changed, or something was left beside it";
}

}  // namespace
