// The key command: random keys, and keys spun from a seed text that two parties share.
#include "Command.h"
#include "Io.h"

#include <zq/crypto/SecureFile.h>
#include <zq/crypto/SymetricEncryption.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace zqtool {
namespace {

struct KeyOptions {
  std::size_t bytes = 32;
  bool bytesGiven = false;
  std::string seed;
  bool seeded = false;
  std::size_t salt = 0;
};

int keyCommand(const KeyOptions& options) {
  if (!options.seeded) {
    const zq::crypto::secure_string key = zq::crypto::randomKey(options.bytes);
    std::cout << toHex(key.data(), key.size()) << "\n";
    return kSuccess;
  }
  // The same seed, size and salt must give the same key on both sides: no default size.
  if (!options.bytesGiven) throw UsageError("--seed needs --bytes (see 'zq key --help')");
  if (options.seed.empty()) throw UsageError("the seed is empty");
  const std::vector<unsigned char> key = zq::SymetricEncryption::random(options.seed, options.bytes, options.salt);
  std::cout << toHex(reinterpret_cast<const char*>(key.data()), key.size()) << "\n";
  return kSuccess;
}

const bool registered = registerCommands([](CLI::App& app) {
  auto options = std::make_shared<KeyOptions>();
  CLI::App* key = addCommand(app, "key", "a random key in hex, or with --seed the key spun from a seed text",
                             [options] { return keyCommand(*options); });
  key->add_option("--bytes", options->bytes, "key length in bytes (default 32)")
      ->check(CLI::Range(1, 1 << 20))
      ->each([options](const std::string&) { options->bytesGiven = true; });
  CLI::Option* seed =
      key->add_option("--seed", options->seed, "the shared seed text")->each([options](const std::string&) {
        options->seeded = true;
      });
  key->add_option("--salt", options->salt, "a number that varies the key of one seed (default 0)")->needs(seed);
});

}  // namespace
}  // namespace zqtool
