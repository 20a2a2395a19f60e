// The encrypt and decrypt commands: files in the layer's encrypted form, file to file or in place.
#include "Command.h"
#include "Digests.h"
#include "Io.h"
#include "Progress.h"

#include <zq/crypto/EncryptedStream.h>
#include <zq/crypto/SecureFile.h>

#include <openssl/evp.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <sys/stat.h>

namespace zqtool {
namespace {

using zq::crypto::MessageDigest;
using zq::crypto::secure_string;

constexpr std::size_t kBlock = 16;
constexpr std::size_t kPaddedKey = 64;  // the length the layer brings pass phrases to; AES takes 32
const char kNotEncrypted[] = "wrong key or not encrypted data";

struct CryptFileOptions {
  std::string keyFile;
  std::string digest;
  std::string source;
  std::string target;
  ProgressMode progress = ProgressMode::Auto;
};

// Padded with blanks to 64 bytes for both directions: the library pads only when encrypting, so
// a short pass phrase would otherwise not decrypt what it encrypted.
secure_string readKey(const CryptFileOptions& options, bool confirm) {
  secure_string key = options.keyFile.empty() ? readSecret("pass phrase", confirm, false) : readAll(options.keyFile);
  if (key.empty()) throw Failure(options.keyFile.empty() ? "the pass phrase is empty" : options.keyFile + ": empty");
  if (key.size() < kPaddedKey) key.append(kPaddedKey - key.size(), ' ');
  return key;
}

bool sameFile(const std::string& a, const std::string& b) {
  struct stat x {
  }, y{};
  return ::stat(a.c_str(), &x) == 0 && ::stat(b.c_str(), &y) == 0 && x.st_dev == y.st_dev && x.st_ino == y.st_ino;
}

// The count of padding bytes that the last block of `file` ends in under `key`, or 0 when
// its padding check fails: the library reports no wrong key, so this is learnt before any
// file is written. The block before the last serves as its vector.
std::size_t paddingOf(const std::string& file, std::uint64_t size, const secure_string& key) {
  unsigned char tail[2 * kBlock] = {};
  std::ifstream in(file, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(size - sizeof tail));
  if (!in.read(reinterpret_cast<char*>(tail), sizeof tail)) throw Failure(file + ": cannot be read");

  unsigned char plain[2 * kBlock] = {};
  int length = 0;
  std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  const bool decrypted = context &&
                         EVP_DecryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr,
                                            reinterpret_cast<const unsigned char*>(key.data()), tail) == 1 &&
                         EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1 &&
                         EVP_DecryptUpdate(context.get(), plain, &length, tail + kBlock, kBlock) == 1 &&
                         length == kBlock;
  std::size_t padding = decrypted ? plain[kBlock - 1] : 0;
  if (padding > kBlock) padding = 0;
  for (std::size_t i = kBlock - padding; i < kBlock; ++i) {
    if (plain[i] != padding) padding = 0;
  }
  zq::crypto::zeroOut(plain, sizeof plain);
  return padding;
}

int cryptFileCommand(bool encrypting, const CryptFileOptions& options) {
  // Named before anything is read or written, so that a bad name costs nothing.
  const bool digesting = !options.digest.empty();
  const auto algorithm =
      digesting ? static_cast<MessageDigest::Algorithm>(digestAlgorithm(options.digest)) : MessageDigest::Algorithm();
  const std::string& source = options.source;
  const std::uint64_t size = regularFileSize(source);
  { const InputFile readable(source); }  // or a Failure that names it
  if (!encrypting && (size < 2 * kBlock || size % kBlock != 0)) throw Failure(source + ": " + kNotEncrypted);

  const secure_string key = readKey(options, encrypting);
  const std::uint64_t expected =
      encrypting ? kBlock + (size / kBlock + 1) * kBlock : size - kBlock - paddingOf(source, size, key);
  if (!encrypting && expected == size - kBlock) throw Failure(source + ": " + kNotEncrypted);

  const bool inPlace = options.target.empty() || sameFile(source, options.target);
  const std::string target = inPlace ? source : options.target;
  struct stat info {};
  ::stat(source.c_str(), &info);
  PendingFile pending(target, info.st_mode & 07777);
  std::optional<MessageDigest> digest;
  if (digesting) digest.emplace(algorithm);
  {
    Progress progress(options.progress, expected);
    FileWatch watch(progress, pending.path());
    try {
      if (encrypting) {
        zq::crypto::encrypt(source, pending.path(), key, digest ? &*digest : nullptr);
      } else {
        zq::crypto::decrypt(source, pending.path(), key, digest ? &*digest : nullptr);
      }
    } catch (const std::exception& e) {
      throw Failure("cannot write " + target + ": " + e.what());
    }
  }
  if (regularFileSize(pending.path()) != expected) throw Failure("cannot write " + target);
  // The plain text that encryption replaced in place is overwritten once it has lost its name.
  if (inPlace && encrypting) {
    pending.commit([](const std::string& old) { zq::crypto::zeroOut(boost::filesystem::path(old), 1); });
  } else {
    pending.commit();
  }
  if (digest) std::cout << digestLine(*digest, encrypting ? source : target, false) << "\n";
  return kSuccess;
}

void addCryptFileCommand(CLI::App& app, bool encrypting) {
  auto options = std::make_shared<CryptFileOptions>();
  CLI::App* command = addCommand(
      app, encrypting ? "encrypt" : "decrypt",
      encrypting ? "encrypt SOURCE into TARGET, or in place without it (16-byte vector, then AES-256-CBC)"
                 : "decrypt SOURCE into TARGET, or in place without it; a wrong key leaves every file as it was",
      [options, encrypting] { return cryptFileCommand(encrypting, *options); });
  command->add_option("--key-file", options->keyFile,
                      "the key is this file's bytes (default: a pass phrase, asked for on a terminal or read as "
                      "one line from standard input)");
  command->add_option("--digest", options->digest, "also print the plain text's digest by this name, as 'zq digest'");
  command->add_option("SOURCE", options->source, "the file to read")->required();
  command->add_option("TARGET", options->target, "the file to write (default: SOURCE, in place)");
  addProgressOptions(*command, options->progress);
}

const bool registered = registerCommands([](CLI::App& app) {
  addCryptFileCommand(app, true);
  addCryptFileCommand(app, false);
});

}  // namespace
}  // namespace zqtool
