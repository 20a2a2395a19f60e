#include <zq/values/DataStream.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace {

TEST(DataStreamTest, StringStreamsAndTheirModes) {
  zq::StringDataOutStream out;
  out << L"x=" << 42 << L' ' << 1.5;
  EXPECT_EQ(L"x=42 1.5", out.str());
  zq::StringDataOutStream overwrite(L"abcdef"), append(L"abc", std::ios::out | std::ios::app);
  overwrite << L"XY";
  append << L"XY";
  EXPECT_EQ(L"XYcdef abcXY", overwrite.str() + L" " + append.str());

  // Reads from a copy, and through a standard base the virtual destructors free the buffer too.
  auto text = std::make_unique<std::wstring>(L"17 word");
  std::unique_ptr<std::wistream> in(new zq::StringDataInStream(*text));
  text.reset();
  int n = 0;
  std::wstring word;
  *in >> n >> word;
  EXPECT_EQ(L"17 word", std::to_wstring(n) + L" " + word);

  zq::StringDataInStream writeOnly(L"12", std::ios::out);  // nothing to read
  EXPECT_TRUE((writeOnly >> n).fail());
}

TEST(DataStreamTest, PlainStreamsUseTheCallersBuffer) {
  std::wstringbuf buffer;
  zq::DataOutStream(&buffer) << L"kept " << 3;
  std::wstring word;
  int n = 0;
  zq::DataInStream(&buffer) >> word >> n;
  EXPECT_EQ(L"kept 3", word + L" " + std::to_wstring(n));
  EXPECT_TRUE(zq::DataInStream(nullptr).bad());
}

}  // namespace
