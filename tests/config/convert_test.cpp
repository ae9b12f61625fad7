#include <gtest/gtest.h>

#include <clocale>
#include <functional>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "config/VbConvert.h"

using namespace VbConvert;

TEST(ValTest, TakesTheLeadingNumberOnly) {
  for (auto [s, dWant] : {std::pair{"42", 42.0},
                          {"  7x", 7},
                          {"2,5", 2},
                          {"2.5", 2.5},
                          {"-3.25e2", -325},
                          {".5", 0.5},
                          {"yes", 0},
                          {"", 0},
                          {"1e", 1},
                          {"-", 0}})
    EXPECT_EQ(Val(s), dWant) << s;
}

// A server set to a comma-decimal language reads numbers as any other: Qt's application
// object sets the C locale from the environment, so the process may well run under one.
TEST(ValTest, CommaDecimalLocaleChangesNothing) {
  const std::vector<std::string> aTexts = {"0.5", "2,5", "-3.25e2", "1e400", "-1e-400", "  7.75x", "12345678.875"};
  std::vector<double> aInC;
  for (const auto& s : aTexts) aInC.push_back(Val(s));
  const std::string sBefore = std::setlocale(LC_ALL, nullptr);
  if (!std::setlocale(LC_ALL, "de_DE.UTF-8"))
    GTEST_SKIP() << "locale de_DE.UTF-8 not generated (scripts/install-deps.sh)";
  ASSERT_EQ(std::string(std::localeconv()->decimal_point), ",");
  for (size_t i = 0; i < aTexts.size(); ++i) EXPECT_EQ(Val(aTexts[i]), aInC[i]) << aTexts[i];
  EXPECT_EQ(Val("0.5"), 0.5);
  EXPECT_EQ(Val("2,5"), 2);
  std::setlocale(LC_ALL, sBefore.c_str());
}

TEST(RoundTest, HalvesGoToTheEvenNeighbour) {
  for (auto [d, lWant] : {std::pair{0.5, 0}, {1.5, 2}, {2.5, 2}, {-2.5, -2}, {-1.5, -2}, {2.6, 3}, {3600.0 / 7, 514}})
    EXPECT_EQ(RoundEven(d), lWant) << d;
}

TEST(NarrowTest, ValuesOutsideTheWidthOverflow) {
  EXPECT_EQ(ToInt(32767.4), 32767);
  EXPECT_EQ(ToInt(-32768), -32768);
  EXPECT_EQ(ToLong(2147483647.0), 2147483647);
  int iCase = 0;
  for (auto fn : std::initializer_list<std::function<void()>>{
           [] { ToInt(32767.5); }, [] { ToInt(-32769); }, [] { ToLong(2147483648.0); }, [] { ToLong(Val("1e400")); },
           [] { ToSingle(1e39); }, [] { StrictLong("99999999999"); }})
    EXPECT_EQ(ErrorOf(fn), kErrOverflow) << "case " << iCase++;
}

TEST(StrictTest, WholeTextMustBeANumber) {
  EXPECT_EQ(StrictLong(" 1008 "), 1008);
  EXPECT_EQ(StrictLong("1008.5"), 1008);
  EXPECT_EQ(StrictLong("-4"), -4);
  EXPECT_EQ(ErrorOf([] { StrictLong("1008h"); }), kErrTypeMismatch);
  EXPECT_EQ(ErrorOf([] { StrictLong(""); }), kErrTypeMismatch);
}

TEST(FlagTest, OnlyOneIsTrue) {
  for (auto [s, bWant] :
       {std::pair{"1", true}, {" 1.0", true}, {"-1", false}, {"2", false}, {"yes", false}, {"", false}})
    EXPECT_EQ(Flag(s), bWant) << s;
}
