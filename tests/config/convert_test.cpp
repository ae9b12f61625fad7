#include <gtest/gtest.h>

#include <functional>

#include "config/VbConvert.h"
#include "support/CNVErr.h"

using namespace VbConvert;

namespace {
int32_t ErrorOf(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const RaisedError& e) {
    return e.Number;
  }
  return 0;
}
}  // namespace

TEST(ValTest, TakesTheLeadingNumberOnly) {
  EXPECT_EQ(Val("42"), 42);
  EXPECT_EQ(Val("  7x"), 7);
  EXPECT_EQ(Val("2,5"), 2);
  EXPECT_EQ(Val("2.5"), 2.5);
  EXPECT_EQ(Val("-3.25e2"), -325);
  EXPECT_EQ(Val(".5"), 0.5);
  EXPECT_EQ(Val("yes"), 0);
  EXPECT_EQ(Val(""), 0);
  EXPECT_EQ(Val("1e"), 1);
  EXPECT_EQ(Val("-"), 0);
}

TEST(RoundTest, HalvesGoToTheEvenNeighbour) {
  EXPECT_EQ(RoundEven(0.5), 0);
  EXPECT_EQ(RoundEven(1.5), 2);
  EXPECT_EQ(RoundEven(2.5), 2);
  EXPECT_EQ(RoundEven(-2.5), -2);
  EXPECT_EQ(RoundEven(-1.5), -2);
  EXPECT_EQ(RoundEven(2.6), 3);
  EXPECT_EQ(RoundEven(3600.0 / 7), 514);
}

TEST(NarrowTest, ValuesOutsideTheWidthOverflow) {
  EXPECT_EQ(ToInt(32767.4), 32767);
  EXPECT_EQ(ErrorOf([] { ToInt(32767.5); }), kErrOverflow);
  EXPECT_EQ(ToInt(-32768), -32768);
  EXPECT_EQ(ErrorOf([] { ToInt(-32769); }), kErrOverflow);
  EXPECT_EQ(ToLong(2147483647.0), 2147483647);
  EXPECT_EQ(ErrorOf([] { ToLong(2147483648.0); }), kErrOverflow);
  EXPECT_EQ(ErrorOf([] { ToLong(Val("1e400")); }), kErrOverflow);
  EXPECT_EQ(ErrorOf([] { ToSingle(1e39); }), kErrOverflow);
}

TEST(StrictTest, WholeTextMustBeANumber) {
  EXPECT_EQ(StrictLong(" 1008 "), 1008);
  EXPECT_EQ(StrictLong("1008.5"), 1008);
  EXPECT_EQ(StrictLong("-4"), -4);
  EXPECT_EQ(ErrorOf([] { StrictLong("1008h"); }), kErrTypeMismatch);
  EXPECT_EQ(ErrorOf([] { StrictLong(""); }), kErrTypeMismatch);
  EXPECT_EQ(ErrorOf([] { StrictLong("99999999999"); }), kErrOverflow);
}

TEST(FlagTest, OnlyOneIsTrue) {
  EXPECT_TRUE(Flag("1"));
  EXPECT_TRUE(Flag(" 1.0"));
  EXPECT_FALSE(Flag("-1"));
  EXPECT_FALSE(Flag("2"));
  EXPECT_FALSE(Flag("yes"));
  EXPECT_FALSE(Flag(""));
}

