#include <zq/Net/MacAddress.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace {

using zq::MacAddress;

const MacAddress kSample(0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e);

TEST(MacAddressTest, TextFormsAndCase) {
  EXPECT_EQ(kSample, MacAddress(std::string("00-1A-2b-3C-4d-5E")));
  EXPECT_EQ(kSample, MacAddress(std::wstring(L"00-1A-2B-3C-4D-5E")));
  EXPECT_EQ("00-01-02-03-04-05", MacAddress(std::string("0-1-2-3-4-5")).toString());
  EXPECT_EQ("ff-ff-ff-ff-ff-ff", MacAddress(std::string("ff-ff-ff-ff-ff-ff-and-more")).toString());
  EXPECT_EQ(L"00-1a-2b-3c-4d-5e", kSample.toTString());
  std::ostringstream os;
  kSample.writeTo(os) << '!';
  EXPECT_EQ("00-1a-2b-3c-4d-5e!", os.str());
  std::wostringstream wos;
  kSample.writeTo(wos);
  EXPECT_EQ(L"00-1a-2b-3c-4d-5e", wos.str());
}

TEST(MacAddressTest, StrictAndLooseScansDiffer) {
  // Colons are no separators for either; three digits pass the loose test but stop the
  // two-digit scan; a short text fails both. A failed scan leaves the object as it was.
  const struct {
    const char* text;
    bool loose;
  } unread[] = {{"00:11:22:33:44:55", false}, {"123-1-2-3-4-5", true}, {"00-1a-2b-3c-4d", false}};
  for (const auto& c : unread) {
    EXPECT_EQ(c.loose, MacAddress::isMacAddress(std::string(c.text))) << c.text;
    MacAddress m = kSample;
    m.fromString(c.text);
    m.fromString(std::wstring(c.text, c.text + std::strlen(c.text)));
    EXPECT_EQ(kSample, m) << c.text;
  }
  EXPECT_TRUE(MacAddress::isMacAddress("00-1a-2b-3c-4d-5e"));
  EXPECT_FALSE(MacAddress::isMacAddress(static_cast<const char*>(nullptr)));
  EXPECT_TRUE(MacAddress(std::string("junk")).isZero());
}

TEST(MacAddressTest, OrderHashAndWords) {
  EXPECT_LT(MacAddress(0, 0, 0, 0, 0, 0x7F), MacAddress(0, 0, 0, 0, 0, 0x80)) << "bytes compare unsigned";
  EXPECT_GT(MacAddress(1, 0, 0, 0, 0, 0), MacAddress(0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF));
  EXPECT_EQ(-1, MacAddress(1, 2, 3, 4, 5, 6).compare(MacAddress(1, 2, 3, 4, 5, 200)));
  EXPECT_EQ(1, MacAddress(1, 2, 3, 4, 5, 200).compare(MacAddress(1, 2, 3, 4, 5, 6)));
  EXPECT_EQ(0, kSample.compare(kSample));
  EXPECT_EQ(0x4du, kSample.hash());
  EXPECT_EQ(0x4du, kSample.highWord());
  EXPECT_EQ(MacAddress(1, 2, 3, 4, 5, 6).hash(), MacAddress(1, 9, 9, 9, 5, 9).hash());
  const unsigned char raw[6] = {MacAddress::k_zq0, MacAddress::k_zq1, MacAddress::k_zq2, 1, 2, 3};
  EXPECT_EQ("02-5a-71-01-02-03", MacAddress(raw).toString());
  EXPECT_TRUE(MacAddress::NULL_MAC_ADDRESS.isZero());
}

}  // namespace
