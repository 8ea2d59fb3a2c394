// The set-once value: zero before the first Set, the first Set wins, IsSet follows it.
#include <gtest/gtest.h>

#include "controller/SetOnce.h"

TEST(SetOnce, HoldsZeroBeforeFirstSet) {
  CSetOnce<int> integer;
  CSetOnce<float> real;
  CSetOnce<bool> flag;
  EXPECT_EQ(integer.Get(), 0);
  EXPECT_EQ(real.Get(), 0.0f);
  EXPECT_FALSE(flag.Get());
  EXPECT_FALSE(integer.IsSet());
}

TEST(SetOnce, FirstSetWinsForEveryType) {
  CSetOnce<float> real;
  real.Set(2.5f);
  real.Set(-1.0f);
  EXPECT_TRUE(real.IsSet());
  EXPECT_EQ(real.Get(), 2.5f);

  CSetOnce<bool> flag;
  flag.Set(false);
  EXPECT_TRUE(flag.IsSet());
  flag.Set(true);
  EXPECT_FALSE(flag.Get());
}

TEST(SetOnce, SettingZeroStillCountsAsSet) {
  CSetOnce<int> integer;
  integer.Set(0);
  EXPECT_TRUE(integer.IsSet());
  integer.Set(5);
  EXPECT_EQ(integer.Get(), 0);
}
