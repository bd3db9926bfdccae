#include <gtest/gtest.h>
#include <orvanest/ORVANEST.h>
TEST(Smoke, Loads) { EXPECT_STREQ(ldbgFindSource(0x00100000), ".\\LMM\\LMEM"); }
