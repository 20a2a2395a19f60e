// The RSA PEM readers on any text and pass phrase: a refused text leaves the key as it was, and a
// key that was read prints in a form that reads back to the same key.
#include <zq/crypto/RSAKeyPair.h>

#include "FuzzSupport.h"

#include <string>

using zq::crypto::RSAKeyPair;
using zq::crypto::secure_string;

namespace {

secure_string secure(const std::string& text) { return secure_string(text.data(), text.size()); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> fields = zq::fuzz::splitFields(data, size, 2);
  const std::string& passPhrase = fields[0];
  const std::string& pem = fields[1];

  RSAKeyPair publicOnly;
  if (publicOnly.setPublicKey(secure(pem))) {
    const secure_string printed = publicOnly.printPublicKey();
    RSAKeyPair again;
    ZQ_FUZZ_CHECK(again.setPublicKey(printed));
    ZQ_FUZZ_CHECK(again.printPublicKey() == printed);
  } else {
    ZQ_FUZZ_CHECK(publicOnly.empty() && publicOnly.printPublicKey().empty());
  }

  RSAKeyPair pair;
  if (pair.setPrivateKey(secure(pem), secure(passPhrase))) {
    ZQ_FUZZ_CHECK(!pair.emptyPrivateKey());
    const secure_string printed = pair.printPrivateKey(secure("fuzz"));
    if (!printed.empty()) {
      RSAKeyPair again;
      ZQ_FUZZ_CHECK(again.setPrivateKey(printed, secure("fuzz")));
      ZQ_FUZZ_CHECK(again.printPublicKey() == pair.printPublicKey());
    }
  } else {
    ZQ_FUZZ_CHECK(pair.empty());
  }

  RSAKeyPair both(secure(pem), secure(pem), secure(passPhrase));
  (void)both.maxDataSize();
  return 0;
}
