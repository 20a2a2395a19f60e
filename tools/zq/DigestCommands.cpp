// Commands over the message digest: file digests, Unix crypt hashes and PBKDF2.
#include "Command.h"
#include "Digests.h"
#include "Io.h"
#include "Progress.h"

#include <zq/crypto/SecureFile.h>
#include <zq/values/Base64.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace zqtool {

namespace {

using zq::crypto::MessageDigest;
using zq::crypto::secure_string;

constexpr int kPbkdf2Flag = 128;
constexpr int kLastAlgorithm = MessageDigest::SHA512;

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}

std::string knownNames() {
  std::string names;
  for (int a = 0; a <= kLastAlgorithm; ++a) names += (a ? ", " : "") + MessageDigest::algorithmName(a);
  return names;
}

// Whether the library reads `name` as something it knows, rather than falling back.
bool isKnownName(const std::string& name) {
  static const std::regex number("[0-9]+");
  static const std::regex pbkdf2("PBKDF2;(.+);([0-9]+)", std::regex::icase);
  std::smatch parts;
  if (std::regex_match(name, number)) {
    const unsigned long value = std::strtoul(name.c_str(), nullptr, 10);
    const unsigned long plain = value & 127;
    return value > 0 && plain <= kLastAlgorithm && (value & kPbkdf2Flag ? (value & 0xF00) == 0 : value == plain);
  }
  if (std::regex_match(name, parts, pbkdf2)) {
    const std::string inner = parts[1];
    return isKnownName(inner) && (MessageDigest::algorithmFromName(inner) & kPbkdf2Flag) == 0;
  }
  for (int a = 0; a <= kLastAlgorithm; ++a) {
    if (equalsIgnoringCase(name, MessageDigest::algorithmName(a))) return true;
  }
  return false;
}

}  // namespace

int digestAlgorithm(const std::string& name) {
  if (!isKnownName(name)) throw UsageError("unknown digest '" + name + "' (known: " + knownNames() + ")");
  const int algorithm = MessageDigest::algorithmFromName(name);
  const int length = MessageDigest::length(static_cast<MessageDigest::Algorithm>(algorithm & 127));
  if (length < 0 || (length == 0 && (algorithm & 127) != MessageDigest::MD0)) {
    throw Failure("the digest " + MessageDigest::algorithmName(algorithm & 127) + " is not available here");
  }
  return algorithm;
}

std::string digestLine(MessageDigest& digest, const std::string& fileName, bool base64) {
  const secure_string value = base64 ? digest.digest_base64() : digest.digest();
  std::string line = base64 ? std::string(value.data(), value.size()) : toHex(value.data(), value.size());
  std::string name;
  bool escaped = false;
  for (const char c : fileName) {
    if (c == '\\' || c == '\n') escaped = true;
    name += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : std::string(1, c);
  }
  return (escaped ? "\\" : "") + line + "  " + name;
}

void feedFile(MessageDigest& digest, const std::string& file, ProgressMode mode) {
  InputFile in(file);
  Progress progress(mode, in.size());
  std::vector<char> buffer(1 << 20);
  std::uint64_t done = 0;
  while (const std::size_t n = in.read(buffer.data(), buffer.size())) {
    digest.append(buffer.data(), n);
    progress.update(done += n);
  }
}

namespace {

struct DigestOptions {
  std::string algorithm = "SHA-256";
  bool base64 = false;
  std::vector<std::string> files;
  ProgressMode progress = ProgressMode::Auto;
};

int digestCommand(const DigestOptions& options) {
  const int algorithm = digestAlgorithm(options.algorithm);
  const std::vector<std::string> files = options.files.empty() ? std::vector<std::string>{"-"} : options.files;
  int status = kSuccess;
  for (const std::string& file : files) {
    try {
      MessageDigest digest(static_cast<MessageDigest::Algorithm>(algorithm));
      feedFile(digest, file, options.progress);
      std::cout << digestLine(digest, file, options.base64) << "\n";
    } catch (const Failure& e) {
      std::cout.flush();
      report(e.what());
      status = kFailure;
    }
  }
  return status;
}

const char kSaltAlphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

secure_string freshSetting() {
  const secure_string bytes = zq::crypto::randomKey(MessageDigest::SALT_LEN_MAX);
  secure_string setting = "$6$";
  // 64 divides 256, so every character of the alphabet is equally likely.
  for (const char b : bytes) setting += kSaltAlphabet[static_cast<unsigned char>(b) % 64];
  return setting;
}

bool isSetting(const std::string& text) { return text.compare(0, 3, "$5$") == 0 || text.compare(0, 3, "$6$") == 0; }

// Compares without an early exit, so the time taken tells nothing of where a guess went wrong.
bool sameText(const secure_string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  unsigned char difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) difference |= static_cast<unsigned char>(a[i] ^ b[i]);
  return difference == 0;
}

struct CryptOptions {
  std::string setting;
  bool checking = false;
  std::string check;
};

int cryptCommand(const CryptOptions& options) {
  if (options.checking) {
    // The setting is all before the last "$": the salt itself may hold "$".
    const std::size_t last = options.check.rfind('$');
    if (!isSetting(options.check) || last < 3) throw UsageError("not a $5$ or $6$ hash: '" + options.check + "'");
    secure_string key = readSecret("key", false, false);
    const secure_string hash = MessageDigest::crypt(std::move(key), secure_string(options.check.substr(0, last)));
    return sameText(hash, options.check) ? kSuccess : kFailure;
  }
  if (!options.setting.empty() && !isSetting(options.setting)) {
    throw UsageError("a setting begins with $5$ (SHA-256) or $6$ (SHA-512): '" + options.setting + "'");
  }
  secure_string key = readSecret("key", true, false);
  const secure_string setting = options.setting.empty() ? freshSetting() : secure_string(options.setting);
  const secure_string hash = MessageDigest::crypt(std::move(key), setting);
  std::cout << hash << "\n";
  return kSuccess;
}

struct Pbkdf2Options {
  std::string algorithm = "SHA-256";
  int iterations = 0;
  std::string salt;
};

constexpr int kDefaultIterations = 10000;

int pbkdf2Command(const Pbkdf2Options& options) {
  const int algorithm = digestAlgorithm(options.algorithm);
  // A "PBKDF2;NAME;COUNT" name brings its own count.
  const int iterations = options.iterations > 0           ? options.iterations
                         : (algorithm & kPbkdf2Flag) != 0 ? std::max(1, algorithm >> 12)
                                                          : kDefaultIterations;
  secure_string password = readSecret("password", true, false);
  const secure_string hash = MessageDigest::passwordHash(std::move(password), secure_string(options.salt), iterations,
                                                         static_cast<MessageDigest::Algorithm>(algorithm & 127));
  std::cout << toHex(hash.data(), hash.size()) << "\n";
  return kSuccess;
}

const bool registered = registerCommands([](CLI::App& app) {
  auto digest = std::make_shared<DigestOptions>();
  CLI::App* digestCommandLine =
      addCommand(app, "digest", "digest of each file, in the form of sha256sum (standard input for none or -)",
                 [digest] { return digestCommand(*digest); });
  digestCommandLine->add_option("-a,--algorithm", digest->algorithm, "digest name or number (default SHA-256)");
  digestCommandLine->add_flag("--base64", digest->base64, "the digest in Base64 instead of hex");
  digestCommandLine->add_option("FILE", digest->files, "files; - is standard input");
  addProgressOptions(*digestCommandLine, digest->progress);

  auto crypt = std::make_shared<CryptOptions>();
  CLI::App* cryptCommandLine =
      addCommand(app, "crypt",
                 "Unix crypt hash of the key on standard input (a prompt on a terminal); without SETTING\n"
                 "$6$ with a fresh random salt. --check: status 0 if the key gives HASH, 1 if not",
                 [crypt] { return cryptCommand(*crypt); });
  CLI::Option* setting = cryptCommandLine->add_option("SETTING", crypt->setting, "$5$SALT, $6$SALT, $6$rounds=N$SALT");
  cryptCommandLine->add_option("--check", crypt->check, "a stored hash to check the key against")
      ->each([crypt](const std::string&) { crypt->checking = true; })
      ->excludes(setting);

  auto pbkdf2 = std::make_shared<Pbkdf2Options>();
  CLI::App* pbkdf2CommandLine =
      addCommand(app, "pbkdf2", "64 bytes of PBKDF2 of the password on standard input (a prompt on a terminal), in hex",
                 [pbkdf2] { return pbkdf2Command(*pbkdf2); });
  pbkdf2CommandLine->add_option("-a,--algorithm", pbkdf2->algorithm, "digest name or number (default SHA-256)");
  pbkdf2CommandLine
      ->add_option("-i,--iterations", pbkdf2->iterations,
                   "iteration count (default: that of a PBKDF2;NAME;COUNT name, else 10000)")
      ->check(CLI::Range(1, 0x7FFFFFFF));
  pbkdf2CommandLine->add_option("--salt", pbkdf2->salt, "the salt, as text")->required();
});

}  // namespace

}  // namespace zqtool
