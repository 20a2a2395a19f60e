// The rsa commands: key pairs in PEM, signatures over a file's SHA-256 digest, and short
// messages encrypted for a public key. Signatures and cipher texts travel as one line of Base64.
#include "Command.h"
#include "Digests.h"
#include "Io.h"
#include "Progress.h"

#include <zq/crypto/MessageDigest.h>
#include <zq/crypto/RSAKeyPair.h>
#include <zq/values/Base64.h>

#include <unistd.h>

#include <cctype>
#include <iostream>
#include <memory>
#include <string>

namespace zqtool {
namespace {

using zq::crypto::MessageDigest;
using zq::crypto::RSAKeyPair;
using zq::crypto::secure_string;

struct RsaOptions {
  int bits = 3072;
  std::string out;
  bool force = false;
  std::string key;
  std::string passFile;
  std::string signature;
  std::string file;
  ProgressMode progress = ProgressMode::Auto;
};

secure_string passPhrase(const RsaOptions& options, bool confirm, bool stdinCarriesData) {
  secure_string pass =
      options.passFile.empty() ? readSecret("pass phrase", confirm, stdinCarriesData) : readFirstLine(options.passFile);
  if (pass.empty()) throw Failure("the pass phrase is empty");
  return pass;
}

RSAKeyPair privateKey(const RsaOptions& options, const std::string& file, bool stdinCarriesData) {
  secure_string pem = readAll(file);
  RSAKeyPair key;
  if (!key.setPrivateKey(std::move(pem), passPhrase(options, false, stdinCarriesData)) || key.emptyPrivateKey()) {
    throw Failure(file + ": wrong pass phrase or not an RSA private key");
  }
  return key;
}

RSAKeyPair publicKey(const std::string& file) {
  RSAKeyPair key;
  if (!key.setPublicKey(readAll(file)) || key.emptyPublicKey()) {
    throw Failure(file + ": not an RSA public key (BEGIN RSA PUBLIC KEY)");
  }
  return key;
}

std::string toBase64(const secure_string& data) {
  return zq::Base64::encode(std::string(data.data(), data.size()), zq::Base64::kNoLineBreaks);
}

// Base64 text with blanks and line breaks ignored; anything else that is not of the alphabet
// is refused rather than skipped.
secure_string fromBase64(const secure_string& text, const std::string& what) {
  std::string clean;
  for (const char c : text) {
    if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '/' && c != '=') {
      throw Failure(what + ": not Base64");
    }
    clean += c;
  }
  // The buffer form: the string form stops at the first zero byte.
  secure_string bytes(zq::Base64::calcDencodedLength(clean.data(), clean.size()), '\0');
  bytes.resize(
      zq::Base64::decode(clean.data(), clean.size(), reinterpret_cast<unsigned char*>(&bytes[0]), bytes.size()));
  return bytes;
}

secure_string fileDigest(const RsaOptions& options) {
  MessageDigest digest(MessageDigest::SHA256);
  feedFile(digest, options.file, options.progress);
  return digest.digest();
}

int genkey(const RsaOptions& options) {
  if (!options.force && ::access(options.out.c_str(), F_OK) == 0) {
    throw Failure(options.out + ": exists (give --force to replace it)");
  }
  secure_string pass = passPhrase(options, true, false);
  PendingFile pending(options.out, 0600, false);
  RSAKeyPair key;
  key.create(options.bits);
  if (key.empty()) throw Failure("no key of " + std::to_string(options.bits) + " bits could be made");
  const secure_string pem = key.printPrivateKey(std::move(pass));
  if (pem.empty()) throw Failure("the private key could not be written");
  pending.write(pem.data(), pem.size());
  pending.commit();
  return kSuccess;
}

int pub(const RsaOptions& options) {
  std::cout << privateKey(options, options.key, false).printPublicKey();
  return kSuccess;
}

int sign(const RsaOptions& options) {
  const RSAKeyPair key = privateKey(options, options.key, options.file == "-");
  const secure_string signature = key.sign(fileDigest(options));
  if (signature.empty()) throw Failure("the signature could not be made");
  std::cout << toBase64(signature) << "\n";
  return kSuccess;
}

int verify(const RsaOptions& options) {
  const RSAKeyPair key = publicKey(options.key);
  const secure_string signature = fromBase64(readAll(options.signature), options.signature);
  const bool good = key.verify(fileDigest(options), signature);
  std::cout << options.file << ": " << (good ? "OK" : "FAILED") << "\n";
  return good ? kSuccess : kFailure;
}

int encrypt(const RsaOptions& options) {
  const RSAKeyPair key = publicKey(options.key);
  secure_string data = readAll("-");
  // An empty plain text would decrypt to what a failure gives, so it is not taken.
  if (data.empty()) throw Failure("nothing to encrypt on standard input");
  if (data.size() > static_cast<std::size_t>(key.maxDataSize())) {
    throw Failure("this key encrypts at most " + std::to_string(key.maxDataSize()) + " bytes; standard input has " +
                  std::to_string(data.size()));
  }
  const secure_string cipher = key.public_encrypt(std::move(data));
  if (cipher.empty()) throw Failure("the data could not be encrypted");
  std::cout << toBase64(cipher) << "\n";
  return kSuccess;
}

int decrypt(const RsaOptions& options) {
  const RSAKeyPair key = privateKey(options, options.key, true);
  const secure_string plain = key.private_decrypt(fromBase64(readAll("-"), "standard input"));
  if (plain.empty()) throw Failure("wrong key or not encrypted data");
  std::cout.write(plain.data(), static_cast<std::streamsize>(plain.size()));
  return kSuccess;
}

const bool registered = registerCommands([](CLI::App& app) {
  CLI::App* rsa = addGroup(app, "rsa", "RSA keys, signatures and short messages");
  auto o = std::make_shared<RsaOptions>();
  const auto addPassFile = [o](CLI::App* command) {
    command->add_option("--pass-file", o->passFile,
                        "the pass phrase is the first line of this file (default: asked for on a terminal)");
  };

  CLI::App* genkeyCommand = addCommand(*rsa, "genkey", "a new key pair, its private key encrypted in PEM into --out",
                                       [o] { return genkey(*o); });
  genkeyCommand->add_option("--bits", o->bits, "key size (default 3072)")->check(CLI::Range(1024, 16384));
  genkeyCommand->add_option("--out", o->out, "the private key file to write (mode 0600)")->required();
  genkeyCommand->add_flag("--force", o->force, "replace an existing file");
  addPassFile(genkeyCommand);

  CLI::App* pubCommand =
      addCommand(*rsa, "pub", "the public key (PEM, BEGIN RSA PUBLIC KEY) of a private key", [o] { return pub(*o); });
  pubCommand->add_option("PRIVATE", o->key, "the private key file")->required();
  addPassFile(pubCommand);

  CLI::App* signCommand = addCommand(*rsa, "sign", "signs the SHA-256 digest of FILE; prints the signature in Base64",
                                     [o] { return sign(*o); });
  signCommand->add_option("--key", o->key, "the private key file")->required();
  signCommand->add_option("FILE", o->file, "the file to sign (- for standard input)")->required();
  addPassFile(signCommand);
  addProgressOptions(*signCommand, o->progress);

  CLI::App* verifyCommand =
      addCommand(*rsa, "verify", "checks a signature that 'zq rsa sign' printed; status 0 if it holds, 1 if not",
                 [o] { return verify(*o); });
  verifyCommand->add_option("--key", o->key, "the public key file")->required();
  verifyCommand->add_option("--signature", o->signature, "the file that holds the signature")->required();
  verifyCommand->add_option("FILE", o->file, "the signed file (- for standard input)")->required();
  addProgressOptions(*verifyCommand, o->progress);

  addCommand(*rsa, "encrypt", "standard input encrypted for a public key, as Base64 on standard output",
             [o] { return encrypt(*o); })
      ->add_option("--key", o->key, "the public key file")
      ->required();

  CLI::App* decryptCommand =
      addCommand(*rsa, "decrypt", "Base64 from 'zq rsa encrypt' on standard input, decrypted to standard output",
                 [o] { return decrypt(*o); });
  decryptCommand->add_option("--key", o->key, "the private key file")->required();
  addPassFile(decryptCommand);
});

}  // namespace
}  // namespace zqtool
