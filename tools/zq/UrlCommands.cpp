// The url command: resolution, relativising, escaping, validation and the parts of URLs.
#include "Command.h"

#include <zq/Net/Url.h>

#include <iostream>

namespace {

const char k_usage[] =
    "usage: zq url resolve BASE REFERENCE...   each reference resolved against BASE\n"
    "       zq url relative URL BASE           URL made relative to BASE\n"
    "       zq url escape TEXT...              the escaped form of each text\n"
    "       zq url validate URL...             'valid' or 'invalid' each; status 1 if any is invalid\n"
    "       zq url parts URL...                scheme, host, port, path, query and fragment\n";

int usage() {
  std::cerr << k_usage;
  return 2;
}

const char* orNone(const char* part) { return part ? part : "(none)"; }

void printParts(const zq::Url& url) {
  std::cout << url << "\n"
            << "  scheme:   " << orNone(url.scheme()) << "\n"
            << "  host:     " << orNone(url.host()) << "\n"
            << "  port:     " << orNone(url.port()) << "\n"
            << "  path:     " << (url.path() ? (url.absolute() ? "/" : "") : "") << orNone(url.path()) << "\n"
            << "  query:    " << orNone(url.query()) << "\n"
            << "  fragment: " << orNone(url.fragment()) << "\n";
}

int urlCommand(const std::vector<std::string>& args) {
  if (args.empty()) return usage();
  const std::string& action = args[0];
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (action == "resolve" && rest.size() >= 2) {
    const zq::Url base(rest[0]);
    for (size_t i = 1; i < rest.size(); ++i) std::cout << base / rest[i] << "\n";
    return 0;
  }
  if (action == "relative" && rest.size() == 2) {
    std::cout << zq::Url(rest[0]).relativize(rest[1].c_str()) << "\n";
    return 0;
  }
  if (action == "escape" && !rest.empty()) {
    for (const std::string& text : rest) std::cout << zq::Url(text).escape() << "\n";
    return 0;
  }
  if (action == "validate" && !rest.empty()) {
    int status = 0;
    for (const std::string& text : rest) {
      const bool valid = zq::Url::validate(text);
      std::cout << (valid ? "valid    " : "invalid  ") << text << "\n";
      if (!valid) status = 1;
    }
    return status;
  }
  if (action == "parts" && !rest.empty()) {
    for (const std::string& text : rest) printParts(zq::Url(text));
    return 0;
  }
  return usage();
}

const bool registered = zqtool::registerCommand(
    {"url", "ACTION ARGS...", "resolve, relativise, escape, validate or split URLs", urlCommand});

}  // namespace
