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
#include <vector>

namespace {

int hashCommand(const std::vector<std::string>& args) {
  if (args.empty()) {
    std::cerr << "zq hash: give one or more texts\n";
    return 2;
  }
  for (const std::string& text : args) {
    const auto h = zq::Hash::hash(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    std::cout << "0x" << std::hex << std::setw(8) << std::setfill('0') << h << std::dec << "  " << text << "\n";
  }
  return 0;
}

const char* const kBase64Usage =
    "usage: zq base64 encode [--no-padding] [--no-line-breaks] [TEXT]\n"
    "       zq base64 decode [TEXT]\n"
    "Without TEXT the data is read from standard input.\n";

// Binary-safe: goes through the buffer forms, so zero bytes survive both ways.
int base64Command(const std::vector<std::string>& args) {
  if (args.empty() || (args[0] != "encode" && args[0] != "decode")) {
    std::cerr << kBase64Usage;
    return 2;
  }
  const bool encoding = args[0] == "encode";
  int flags = 0;
  std::vector<std::string> texts;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (encoding && args[i] == "--no-padding") {
      flags |= zq::Base64::kNoPadding;
    } else if (encoding && args[i] == "--no-line-breaks") {
      flags |= zq::Base64::kNoLineBreaks;
    } else if (args[i].size() > 2 && args[i].compare(0, 2, "--") == 0) {
      std::cerr << "zq base64: unknown option '" << args[i] << "'\n" << kBase64Usage;
      return 2;
    } else {
      texts.push_back(args[i]);
    }
  }
  if (texts.size() > 1) {
    std::cerr << kBase64Usage;
    return 2;
  }
  const std::string input =
      texts.empty() ? std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>())
                    : texts[0];
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

const char* const kVersionUsage =
    "usage: zq version parse TEXT...     fields of each version text\n"
    "       zq version print TEXT...     each text as parsed and printed again\n"
    "       zq version compare A B       prints <, = or > (numbers only)\n"
    "       zq version shorten TEXT...   the short display form\n";

bool parseVersion(const std::string& text, zq::VersionNumber& o_version) {
  try {
    o_version.fromString(zq::wconvert(text));
    return true;
  } catch (const zq::Exception& e) {
    std::cerr << "zq version: " << e.what() << "\n";
    return false;
  }
}

int versionCommand(const std::vector<std::string>& args) {
  const std::string sub = args.empty() ? std::string() : args[0];
  const std::vector<std::string> texts(args.begin() + (args.empty() ? 0 : 1), args.end());
  const bool known = sub == "parse" || sub == "print" || sub == "compare" || sub == "shorten";
  if (!known || texts.empty() || (sub == "compare" && texts.size() != 2)) {
    std::cerr << kVersionUsage;
    return 2;
  }
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

const bool registered =
    zqtool::registerCommand({"hash", "TEXT...", "32-bit string hash of each text", hashCommand}) &&
    zqtool::registerCommand({"base64", "encode|decode [TEXT]", "Base64 of TEXT or standard input", base64Command}) &&
    zqtool::registerCommand({"version", "SUB TEXT...", "versions: parse, print, compare A B, shorten", versionCommand});

}  // namespace
