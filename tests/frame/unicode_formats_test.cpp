#include <gtest/gtest.h>

#include <cmath>

#include "frame/crypt.h"
#include "frame/formats.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

TEST(Unicode, CaseMappingIsUnicodeAndKeepsInvalidBytes) {
  EXPECT_EQ(LowerCase("ÄÖÜ Straße ΣΑΣ ABC"), "äöü straße σασ abc");
  EXPECT_EQ(UpperCase("äöü abc"), "ÄÖÜ ABC");
  const std::string broken =
      "A\xFF"
      "B\xC3";  // stray byte, cut-off sequence
  EXPECT_EQ(LowerCase(broken),
            "a\xFF"
            "b\xC3");
  std::string out = "x";
  AppendLowerCase("ÉTÉ", out);
  EXPECT_EQ(out, "xété");
}

TEST(Unicode, ValidityAndDisplay) {
  EXPECT_TRUE(IsValidUtf8("plain ä 😀"));
  EXPECT_FALSE(IsValidUtf8("\xC0\xAF"));          // overlong "/"
  EXPECT_FALSE(IsValidUtf8("\xED\xA0\x80"));      // surrogate
  EXPECT_FALSE(IsValidUtf8("\xF4\x90\x80\x80"));  // above U+10FFFF
  EXPECT_EQ(DisplayUtf8("a\xFFz"), "a\xEF\xBF\xBDz");
}

TEST(Unicode, CodePointsRoundTripEvenForInvalidBytes) {
  const std::string name = "fü\xFE\x80x😀";
  const std::u32string cps = ToCodePoints(name);
  ASSERT_EQ(cps.size(), 6u);
  EXPECT_EQ(cps[1], U'ü');
  EXPECT_EQ(cps[2], 0xDCFEu);
  EXPECT_EQ(cps[5], U'😀');
  EXPECT_EQ(FromCodePoints(cps), name);
}

TEST(Unicode, Utf16leConversions) {
  const std::string text = "Aä😀";
  const std::string u16 = Utf8ToUtf16le(text);
  EXPECT_EQ(u16, std::string("A\0\xE4\0\x3D\xD8\x00\xDE", 8));
  EXPECT_EQ(Utf16leToUtf8(u16), text);
  // A lone surrogate and a dangling byte become U+FFFD.
  EXPECT_EQ(Utf16leToUtf8(std::string("\x00\xD8"
                                      "A",
                                      3)),
            "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Formats, DatesInTheProgramsForm) {
  double d = 0;
  ASSERT_TRUE(ParseDate("31.12.2023 23:59:58", "dd.MM.yyyy hh:nn:ss", &d));
  EXPECT_EQ(FormatDate(d, "dd/MM/yyyy hh:nn:ss"), "31/12/2023 23:59:58");
  EXPECT_EQ(FormatDate(d, "yyyy-MM-dd"), "2023-12-31");
  EXPECT_EQ(FormatDate(d, "d.M.yy h:n AM/PM"), "31.12.23 11:59 PM");
  // "mm" and "m" are months as well: minutes are "nn" and "n".
  EXPECT_EQ(FormatDate(d, "dd/mm/yyyy hh:nn:ss"), "31/12/2023 23:59:58");
  EXPECT_EQ(FormatDate(d, "d.m.yy"), "31.12.23");
  double back = 0;
  ASSERT_TRUE(ParseDate("31/12/2023 23:59:58", "dd/mm/yyyy hh:nn:ss", &back));
  EXPECT_EQ(FormatDate(back, "dd.MM.yyyy hh:nn:ss"), "31.12.2023 23:59:58");
  EXPECT_DOUBLE_EQ(std::floor(d), 45291.0);  // days since 30 December 1899
  EXPECT_FALSE(ParseDate("31.02.2023 10:00:00", "dd.MM.yyyy hh:nn:ss", &d));
  EXPECT_FALSE(ParseDate("1.1.2023 10:00:00", "dd.MM.yyyy hh:nn:ss", &d));
  EXPECT_FALSE(ParseDate("01.01.2023 10:00:00 x", "dd.MM.yyyy hh:nn:ss", &d));
  // Local-time round trip through the epoch seconds.
  const std::int64_t t = 1700000000;
  EXPECT_EQ(UnixFromDate(DateFromTimespec(t)), t);
}

TEST(Formats, NumbersAndElapsed) {
  EXPECT_EQ(FormatNumber(0), "0");
  EXPECT_EQ(FormatNumber(999), "999");
  EXPECT_EQ(FormatNumber(1234567), "1.234.567");
  EXPECT_EQ(FormatNumber(-1000), "-1.000");
  // Two-digit hours up to 32767 seconds; beyond, the hours as a plain
  // number, so that long runs still read right.
  EXPECT_EQ(FormatElapsed(0), "00:00:00");
  EXPECT_EQ(FormatElapsed(3725), "01:02:05");
  EXPECT_EQ(FormatElapsed(32767), "09:06:07");
  EXPECT_EQ(FormatElapsed(32768), "9:06:08");
  EXPECT_EQ(FormatElapsed(100 * 3600), "100:00:00");
}

TEST(Crypt, XorWithRepeatedKeyIsItsOwnInverse) {
  const std::string secret = "Kennwort äöü";
  const std::string c = Crypt(secret, "key");
  EXPECT_NE(c, secret);
  EXPECT_EQ(c[3], static_cast<char>('n' ^ 'k'));  // the key starts again
  EXPECT_EQ(Crypt(c, "key"), secret);
  EXPECT_EQ(Crypt("", "key"), "");
  std::string back;
  ASSERT_TRUE(CryptFromHex(CryptToHex(c), &back));
  EXPECT_EQ(back, c);
  const std::u16string w = u"Größe";
  EXPECT_EQ(CryptUnicode(CryptUnicode(w, u"k€y"), u"k€y"), w);
}

}  // namespace
}  // namespace kelvor
