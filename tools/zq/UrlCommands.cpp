// The url command: resolution, relativising, escaping, validation and the parts of URLs.
#include "Command.h"

#include <zq/Net/Url.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

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

const bool registered = zqtool::registerCommands([](CLI::App& app) {
  CLI::App* url = zqtool::addGroup(app, "url", "resolve, relativise, escape, validate or split URLs");
  auto base = std::make_shared<std::string>();
  auto texts = std::make_shared<std::vector<std::string>>();

  CLI::App* resolve = zqtool::addCommand(*url, "resolve", "each reference resolved against BASE", [base, texts] {
    const zq::Url resolved(*base);
    for (const std::string& reference : *texts) std::cout << resolved / reference << "\n";
    return 0;
  });
  resolve->add_option("BASE", *base, "the base URL")->required();
  resolve->add_option("REFERENCE", *texts, "relative or absolute references")->required();

  auto target = std::make_shared<std::string>();
  CLI::App* relative = zqtool::addCommand(*url, "relative", "URL made relative to BASE", [target, base] {
    std::cout << zq::Url(*target).relativize(base->c_str()) << "\n";
    return 0;
  });
  relative->add_option("URL", *target, "the URL")->required();
  relative->add_option("BASE", *base, "the base URL")->required();

  zqtool::addCommand(*url, "escape", "the escaped form of each text",
                     [texts] {
                       for (const std::string& text : *texts) std::cout << zq::Url(text).escape() << "\n";
                       return 0;
                     })
      ->add_option("TEXT", *texts, "texts to escape")
      ->required();

  zqtool::addCommand(*url, "validate", "'valid' or 'invalid' each; status 1 if any is invalid",
                     [texts] {
                       int status = 0;
                       for (const std::string& text : *texts) {
                         const bool valid = zq::Url::validate(text);
                         std::cout << (valid ? "valid    " : "invalid  ") << text << "\n";
                         if (!valid) status = 1;
                       }
                       return status;
                     })
      ->add_option("URL", *texts, "URLs to check")
      ->required();

  zqtool::addCommand(*url, "parts", "scheme, host, port, path, query and fragment",
                     [texts] {
                       for (const std::string& text : *texts) printParts(zq::Url(text));
                       return 0;
                     })
      ->add_option("URL", *texts, "URLs to split")
      ->required();
});

}  // namespace
