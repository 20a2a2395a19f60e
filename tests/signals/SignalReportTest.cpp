#include <zq/signals/SignalPublisher.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using zq::SignalPublisher;

class Station : public SignalPublisher {
 public:
  Station() {
    declareSignal<std::string, int>("reading");
    declareSignal<>("tick");
  }
  ~Station() override { resetPtr(); }
};

// A connection with a fixed receiver and name, whose answer to the type check can be turned.
struct Probe : zq::ConnectionImplCpp {
  Probe(const void* receiver, const char* slot, zq::ConnectionType type, std::function<void()> body = {})
      : ConnectionImplCpp(receiver, slot, type, nullptr), m_body(std::move(body)) {}
  void call_slot(std::shared_ptr<zq::ArgumentVector>) override {
    if (m_body) m_body();
  }
  bool is_call_compatible(const zq::SignalDeclaration&) const override { return compatible; }
  std::function<void()> m_body;
  bool compatible = true;
};

const void* const kReceiver = reinterpret_cast<const void*>(0x10);

std::string address(const void* p) {
  std::ostringstream os;
  print_address(os, p);
  return os.str();
}

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
  EXPECT_EQ("(anonymous namespace)::Station@" + address(&station), lines[1]);
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

TEST(SignalReportTest, APublisherWithoutConnectionsClosesAtOnce) {
  SignalPublisher plain;
  std::ostringstream os;
  plain.printDebugInfo(os);
  EXPECT_EQ("---- SignalPublisher Info ----\nzq::SignalPublisher@" + address(&plain) +
                "\n--   Declared Signals       --\ndestroyed\t(SignalPublisher*)\n" + std::string(31, '-') + "\n",
            os.str());
}

TEST(SignalReportTest, MovedConnectionsWithoutDeclarationBreakTheReportOff) {
  Station station;
  SignalPublisher plain;
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
  const std::string args = " (std::string '" + std::string(80, 'x') + "...)\n";
  const std::vector<std::string> lines = linesOf(os.str());
  ASSERT_EQ(6u, lines.size()) << os.str();
  EXPECT_EQ("(anonymous namespace)::Station@" + address(&source) + " emits reading" + args.substr(0, args.size() - 1),
            lines[0]);
  EXPECT_EQ(0u, lines[1].find("  through zq::ConnectionImplForward@0x")) << lines[1];
  EXPECT_EQ("  direct to forwards to (anonymous namespace)::Station@" + address(&target) + "::reading", lines[2]);
  EXPECT_EQ("(anonymous namespace)::Station@" + address(&target) + " emits reading" + args.substr(0, args.size() - 1),
            lines[3]);
  EXPECT_EQ("  through (anonymous namespace)::Probe@" + address(printer.get()), lines[4]);
  EXPECT_EQ("  direct to void*@0x10::onReading(...)", lines[5]);
  EXPECT_EQ(80, precisionAfter) << "the precision stays set";

  // Without arguments the frame's line goes straight on.
  os.str("");
  target.connect("tick", printer, 1);
  target.emitSignal("tick", nullptr);
  EXPECT_EQ("(anonymous namespace)::Station@" + address(&target) +
                " emits tick  through (anonymous namespace)::Probe@" + address(printer.get()) +
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
