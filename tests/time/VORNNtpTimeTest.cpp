#include "time/VORNNtpTime.h"
#include <gtest/gtest.h>
TEST(VORNNtpTime, X) { EXPECT_EQ(VORNNtpTime(-1, 500000000).frac, 2147483650u); }
