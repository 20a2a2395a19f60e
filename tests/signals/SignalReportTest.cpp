#include "tests/signals/Station.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace {

using zq::SignalPublisher;
using zq::test::address;
using zq::test::Probe;
using zq::test::Station;

const void* const kReceiver = reinterpret_cast<const void*>(0x10);

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(SignalReportTest, APublisherReportsDeclarationsAndConnectionsWordForWord) {
  Station station;
  auto direct = std::make_shared<Probe>(kReceiver, "onTick", zq::Direct);
  auto mismatched = std::make_shared<Probe>(kReceiver, "strict", zq::Blocking);
  station.connect("tick", direct, 1);
  station.connect("tick", mismatched, 1);
  mismatched->compatible = false;
  station.connect("reading", std::make_shared<Probe>(nullptr, "onReading", zq::Queued), 1);

  std::ostringstream os;
  station.printDebugInfo(os);
  const std::vector<std::string> lines = linesOf(os.str());
  ASSERT_EQ(15u, lines.size()) << os.str();
  EXPECT_EQ("---- SignalPublisher Info ----", lines[0]);
  EXPECT_EQ("zq::test::Station@" + address(&station), lines[1]);
  EXPECT_EQ("--   Declared Signals       --", lines[2]);
  // Declarations come in the table's own order.
  std::vector<std::string> declared(lines.begin() + 3, lines.begin() + 6);
  std::sort(declared.begin(), declared.end());
  EXPECT_EQ((std::vector<std::string>{"destroyed\t(SignalPublisher*)", "reading\t(std::string,int)", "tick\t()"}),
            declared);
  const std::vector<std::string> connected(lines.begin() + 6, lines.end() - 1);
  EXPECT_EQ((std::vector<std::string>{
                "--   Connected Slots        --",
                "reading",
                "  ------queued------>  void*@null::onReading(...)",
                "tick",
                "  ------direct------>  void*@0x10::onTick(...)",
                "tick",
                "  -----blocking----->  void*@0x10::strict(...)",
                "  (warning: type-mismatch)",
            }),
            connected);
  EXPECT_EQ(std::string(31, '-') + "\n", os.str().substr(os.str().size() - 32));
}

TEST(SignalReportTest, APlainPublisherClosesAtOnceAndMovedConnectionsBreakItsReportOff) {
  Station station;
  SignalPublisher plain;
  std::ostringstream empty;
  plain.printDebugInfo(empty);
  EXPECT_EQ("---- SignalPublisher Info ----\nzq::SignalPublisher@" + address(&plain) +
                "\n--   Declared Signals       --\ndestroyed\t(SignalPublisher*)\n" + std::string(31, '-') + "\n",
            empty.str());

  station.connect("reading", std::make_shared<Probe>(kReceiver, "onReading", zq::Direct), 1);
  station.moveConnectionsTo(plain);
  std::ostringstream os;
  try {
    plain.printDebugInfo(os);
    ADD_FAILURE() << "the report should have thrown";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ("invalid unordered_map<K, T> key", e.what());
  }
  EXPECT_EQ(std::string::npos, os.str().find(std::string(31, '-'))) << "no closing line";

  // The warning the report itself never reaches.
  std::ostringstream one;
  plain.printDebugInfo(one, "reading", zq::SignalDeclaration(), std::make_shared<Probe>(kReceiver, "x", zq::Queued));
  EXPECT_EQ("reading\n  ------queued------>  void*@0x10::x(...)\n  (warning: undeclared signal)", one.str());
  plain.disconnect("", nullptr, "");
}

TEST(SignalReportTest, TheCallStackShowsEveryFrameWithArgumentsCutAt80) {
  Station source, target;
  std::ostringstream os;
  std::streamsize precisionAfter = 0;
  auto printer = std::make_shared<Probe>(kReceiver, "onReading", zq::Direct, [&] {
    SignalPublisher::printCallStack(os);
    precisionAfter = os.precision();
  });
  target.connect("reading", printer, 1);
  ASSERT_TRUE(source.forward("reading", target.getPtr()));

  const std::string longText(100, 'x');
  ASSERT_EQ(1, source.emitSignal("reading", zq::makeArguments(longText)));
  const std::string args = " (std::string '" + std::string(80, 'x') + "...)";
  const std::vector<std::string> lines = linesOf(os.str());
  ASSERT_EQ(6u, lines.size()) << os.str();
  EXPECT_EQ("zq::test::Station@" + address(&source) + " emits reading" + args, lines[0]);
  EXPECT_EQ(0u, lines[1].find("  through zq::ConnectionImplForward@0x")) << lines[1];
  EXPECT_EQ("  direct to forwards to zq::test::Station@" + address(&target) + "::reading", lines[2]);
  EXPECT_EQ("zq::test::Station@" + address(&target) + " emits reading" + args, lines[3]);
  EXPECT_EQ("  through zq::test::Probe@" + address(printer.get()), lines[4]);
  EXPECT_EQ("  direct to void*@0x10::onReading(...)", lines[5]);
  EXPECT_EQ(80, precisionAfter) << "the precision stays set";

  // Without arguments the frame's line goes straight on.
  os.str("");
  target.connect("tick", printer, 1);
  target.emitSignal("tick", nullptr);
  EXPECT_EQ("zq::test::Station@" + address(&target) + " emits tick  through zq::test::Probe@" + address(printer.get()) +
                "\n  direct to void*@0x10::onReading(...)\n",
            os.str());

  std::ostringstream empty;
  SignalPublisher::printCallStack(empty);
  EXPECT_EQ("", empty.str()) << "no emission, nothing printed";
}

TEST(SignalReportTest, SignaturesOfDeclarationsAndArguments) {
  std::ostringstream os;
  SignalPublisher::printSignature(os, zq::makeDeclaration<int, std::string>("s")) << "|";
  SignalPublisher::printSignature(os, zq::makeDeclaration<>("s")) << "|";
  // The comma goes by slot number, so a gap at slot 0 leads with one; later gaps are skipped.
  auto gap = std::make_shared<zq::ArgumentVector>(nullptr, new zq::GenericArgument<int>(1), nullptr,
                                                  new zq::StringArgument("a"));
  SignalPublisher::printSignature(os, gap) << "|";
  SignalPublisher::printSignature(os, std::shared_ptr<zq::ArgumentVector>()) << "|";
  EXPECT_EQ("int,std::string||,ArgT,std::string||", os.str());
}

}  // namespace
