// The conventions every zq command keeps (help, version, usage errors, exit statuses), and the
// commands over addresses, URLs, versions, Base64 and plug-ins.
#include "tests/tools/ToolTestSupport.h"

#include <algorithm>

namespace zq {
namespace test {
namespace {

using CommandLineTest = ToolTest;

TEST_F(CommandLineTest, HelpAndVersionGoToStandardOutputWithStatusZero) {
  for (const std::vector<std::string>& args : {std::vector<std::string>{"--help"},
                                               {},
                                               {"help"},
                                               {"ip", "--help"},
                                               {"url", "resolve", "--help"},
                                               {"help", "url", "resolve"}}) {
    const Outcome run = zq(args);
    ZQ_EXPECT_RUN(run, 0);
    EXPECT_NE(std::string::npos, run.out.find("Usage: zq")) << run.describe();
    EXPECT_EQ("", run.err);
  }
  // Every command is listed in the main help, which `zq help` shows too.
  const std::string help = zq({"--help"}).out;
  EXPECT_EQ(help, zq({"help"}).out);
  EXPECT_EQ(zq({"url", "resolve", "--help"}).out, zq({"help", "url", "resolve"}).out);
  for (const char* command : {"ip", "mac", "url", "version", "hash", "base64", "plugins", "key"}) {
    EXPECT_NE(std::string::npos, help.find(std::string("\n  ") + command + " ")) << command;
  }
  const Outcome version = zq({"--version"});
  ZQ_EXPECT_RUN(version, 0);
  EXPECT_EQ(0u, version.out.rfind("zq ", 0)) << version.out;
}

TEST_F(CommandLineTest, UsageErrorsAreOneLineAndStatusTwo) {
  const std::vector<std::vector<std::string>> wrong = {
      {"frob"},                        // unknown command
      {"url", "frob", "x"},            // unknown subcommand
      {"url"},                         // a group without its subcommand
      {"ip", "--frob"},                // unknown option
      {"mac"},                         // missing argument
      {"version", "compare", "1.2"},   // too few arguments
      {"base64", "encode", "a", "b"},  // too many arguments
      {"key", "--bytes", "0"},         // out of range
      {"key", "--bytes", "x"},         // not a number
      {"key", "--salt", "1"},          // an option without the one it needs
      {"help", "frob"},                // help of an unknown command
  };
  for (const auto& args : wrong) {
    const Outcome run = zq(args);
    SCOPED_TRACE(args.front());
    ZQ_EXPECT_ERROR(run, 2);
    EXPECT_EQ("", run.out);
  }
  EXPECT_NE(std::string::npos, zq({"frob"}).err.find("unknown command 'frob'"));
}

TEST_F(CommandLineTest, AddressCommandsPrintAndClassify) {
  Outcome run = zq({"ip", "192.168.1.10", "::1", "x"});
  ZQ_EXPECT_RUN(run, 1);
  EXPECT_NE(std::string::npos, run.out.find("192.168.1.10\tipv4 192.168.1.10 private")) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("::1\tipv6 ")) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("x\tinvalid\n")) << run.out;
  ZQ_EXPECT_RUN(zq({"ip"}), 0);  // the local adapters

  run = zq({"mac", "00-1a-2b-3c-4d-5e"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("00-1a-2b-3c-4d-5e\t00-1a-2b-3c-4d-5e\n", run.out);
  ZQ_EXPECT_RUN(zq({"mac", "00-1a-2b"}), 1);
}

TEST_F(CommandLineTest, UrlCommandsResolveRelativiseEscapeValidateAndSplit) {
  Outcome run = zq({"url", "resolve", "http://h/a/x", "../b", "c"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("http://h/b\nhttp://h/a/c\n", run.out);
  run = zq({"url", "relative", "http://h/a/b/c", "http://h/a/x"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("b/c\n", run.out);
  run = zq({"url", "validate", "http://h/", "ht tp://x"});
  ZQ_EXPECT_RUN(run, 1);
  EXPECT_EQ("valid    http://h/\ninvalid  ht tp://x\n", run.out);
  run = zq({"url", "parts", "http://h:81/p?q#f"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_NE(std::string::npos, run.out.find("  port:     81\n")) << run.out;
  ZQ_EXPECT_RUN(zq({"url", "escape", "a b"}), 0);
}

TEST_F(CommandLineTest, ValueCommands) {
  Outcome run = zq({"version", "compare", "1.2", "1.10"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("<\n", run.out);
  run = zq({"version", "print", "1.2.3"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("1.2.3.0\n", run.out);

  run = zq({"hash", "abc"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ(0u, run.out.rfind("0x", 0));
  EXPECT_EQ("  abc\n", run.out.substr(10));

  // Base64 is binary-safe both ways, from arguments and from standard input.
  const std::string binary("\0\xff\x10zq\n", 6);
  run = zq({"base64", "encode"}, binary);
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("AP8QenEK\n", run.out);
  run = zq({"base64", "decode", "AP8QenEK"});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ(binary, run.out);
  run = zq({"base64", "encode", "--no-padding", "ab"});
  EXPECT_EQ("YWI\n", run.out);
}

TEST_F(CommandLineTest, PluginsListsAFolderAndFailsOnAMissingOne) {
  Outcome run = zq({"plugins", m_folder});
  ZQ_EXPECT_RUN(run, 0);
  EXPECT_EQ("no component packs in " + m_folder + "\n", run.out);
  run = zq({"plugins", path("missing")});
  ZQ_EXPECT_ERROR(run, 1);
}

}  // namespace
}  // namespace test
}  // namespace zq
