#include <zq/values/DataStream.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

TEST(DataStreamTest, StringStreamsReadAndWriteTheirOwnText) {
  zq::StringDataOutStream out;
  out << L"x=" << 42 << L' ' << 1.5;
  EXPECT_TRUE(out.good());
  EXPECT_EQ(L"x=42 1.5", out.str());

  zq::StringDataInStream in(L"17 word");
  int number = 0;
  std::wstring word;
  in >> number >> word;
  EXPECT_EQ(17, number);
  EXPECT_EQ(L"word", word);
  in >> word;
  EXPECT_TRUE(in.eof());

  // Reads from a copy: the caller's string may go away.
  std::wstring* text = new std::wstring(L"copied");
  zq::StringDataInStream copy(*text);
  delete text;
  copy >> word;
  EXPECT_EQ(L"copied", word);
}

TEST(DataStreamTest, ModesReachTheBuffer) {
  zq::StringDataOutStream overwrite(L"abcdef");
  overwrite << L"XY";
  EXPECT_EQ(L"XYcdef", overwrite.str());

  zq::StringDataOutStream append(L"abc", std::ios::out | std::ios::app);
  append << L"XY";
  EXPECT_EQ(L"abcXY", append.str());

  // An input stream opened for output only has nothing to read.
  zq::StringDataInStream writeOnly(L"12", std::ios::out);
  int n = 0;
  writeOnly >> n;
  EXPECT_TRUE(writeOnly.fail());

  zq::StringDataInStream empty;
  empty.str(L"5");
  empty >> n;
  EXPECT_EQ(5, n);

  // Deleted through a standard base: the virtual destructors free the buffer too.
  std::wistream* in = new zq::StringDataInStream(L"9");
  *in >> n;
  EXPECT_EQ(9, n);
  delete in;
}

TEST(DataStreamTest, PlainStreamsUseTheCallersBuffer) {
  std::wstringbuf buffer;
  {
    zq::DataOutStream out(&buffer);
    out << L"kept " << 3;
  }
  EXPECT_EQ(L"kept 3", buffer.str());  // the buffer outlives the stream

  zq::DataInStream in(&buffer);
  std::wstring word;
  int n = 0;
  in >> word >> n;
  EXPECT_EQ(L"kept", word);
  EXPECT_EQ(3, n);

  zq::DataInStream none(nullptr);
  EXPECT_TRUE(none.bad());
}

}  // namespace
