// Commands over the value types.
#include "Command.h"

#include <zq/foundation/Exception.h>
#include <zq/foundation/Text.h>
#include <zq/values/Base64.h>
#include <zq/values/Hash.h>
#include <zq/values/VersionNumber.h>

#include <iomanip>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

int hashCommand(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    const auto h = zq::Hash::hash(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    std::cout << "0x" << std::hex << std::setw(8) << std::setfill('0') << h << std::dec << "  " << text << "\n";
  }
  return 0;
}

// Binary-safe: goes through the buffer forms, so zero bytes survive both ways.
struct Base64Options {
  bool noPadding = false;
  bool noLineBreaks = false;
  std::vector<std::string> text;  // none or one; none: standard input
};

int base64Command(bool encoding, const Base64Options& options) {
  const int flags =
      (options.noPadding ? zq::Base64::kNoPadding : 0) | (options.noLineBreaks ? zq::Base64::kNoLineBreaks : 0);
  const std::string input =
      options.text.empty() ? std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>())
                           : options.text[0];
  if (input.empty()) return 0;

  std::string output;
  if (encoding) {
    output.resize(zq::Base64::calcEncodedLength(input.size(), flags));
    output.resize(zq::Base64::encode(reinterpret_cast<const unsigned char*>(input.data()), input.size(), &output[0],
                                     output.size(), flags));
    // A trailing line break is part of the encoding only at an exact line end; end the text anyway.
    if (output.empty() || output.back() != '\n') output += '\n';
  } else {
    // Decoding never yields more bytes than it reads characters.
    std::vector<unsigned char> buffer(input.size());
    const std::size_t n = zq::Base64::decode(input.data(), input.size(), buffer.data(), buffer.size());
    output.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(n));
  }
  std::cout.write(output.data(), static_cast<std::streamsize>(output.size()));
  return std::cout ? 0 : 1;
}

bool parseVersion(const std::string& text, zq::VersionNumber& o_version) {
  try {
    o_version.fromString(zq::wconvert(text));
    return true;
  } catch (const zq::Exception& e) {
    zqtool::report("version: " + std::string(e.what()));
    return false;
  }
}

int versionCommand(const std::string& sub, const std::vector<std::string>& texts) {
  std::vector<zq::VersionNumber> versions(texts.size());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (!parseVersion(texts[i], versions[i])) return 1;
  }

  if (sub == "compare") {
    const zq::VersionNumber& a = versions[0];
    const zq::VersionNumber& b = versions[1];
    std::cout << (a < b ? "<" : a == b ? "=" : ">") << "\n";
    return 0;
  }
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const zq::VersionNumber& v = versions[i];
    if (sub == "parse") {
      std::cout << texts[i] << "\n  prefix  \"" << zq::convert(v.getPrefix()) << "\"\n  numbers " << v.getNumber(0)
                << " " << v.getNumber(1) << " " << v.getNumber(2) << " " << v.getNumber(3) << "\n  postfix \""
                << zq::convert(v.getPostfix()) << "\"\n";
    } else if (sub == "print") {
      std::cout << zq::convert(v.toString()) << "\n";
    } else {
      std::cout << zq::convert(v.toShortVersion()) << "\n";
    }
  }
  return 0;
}

const bool registered = zqtool::registerCommands([](CLI::App& app) {
  auto texts = std::make_shared<std::vector<std::string>>();
  zqtool::addCommand(app, "hash", "32-bit string hash of each text", [texts] { return hashCommand(*texts); })
      ->add_option("TEXT", *texts, "texts to hash")
      ->required();

  CLI::App* base64 = zqtool::addGroup(app, "base64", "Base64 of a text or of standard input (binary-safe)");
  auto options = std::make_shared<Base64Options>();
  CLI::App* encode = zqtool::addCommand(*base64, "encode", "encode TEXT, or standard input without it",
                                        [options] { return base64Command(true, *options); });
  encode->add_flag("--no-padding", options->noPadding, "leave out the closing '=' characters");
  encode->add_flag("--no-line-breaks", options->noLineBreaks, "one line, without MIME line breaks");
  encode->add_option("TEXT", options->text, "the text")->expected(0, 1);
  zqtool::addCommand(*base64, "decode", "decode TEXT, or standard input without it",
                     [options] { return base64Command(false, *options); })
      ->add_option("TEXT", options->text, "the Base64 text")
      ->expected(0, 1);

  CLI::App* version = zqtool::addGroup(app, "version", "version numbers: parse, print, compare, shorten");
  const std::pair<const char*, const char*> subs[] = {{"parse", "fields of each version text"},
                                                      {"print", "each text as parsed and printed again"},
                                                      {"shorten", "the short display form"}};
  for (const auto& sub : subs) {
    const std::string name = sub.first;
    zqtool::addCommand(*version, name, sub.second, [name, texts] { return versionCommand(name, *texts); })
        ->add_option("TEXT", *texts, "version texts")
        ->required();
  }
  zqtool::addCommand(*version, "compare", "prints <, = or > (numbers only)",
                     [texts] { return versionCommand("compare", *texts); })
      ->add_option("A B", *texts, "two version texts")
      ->required()
      ->expected(2);
});

}  // namespace
