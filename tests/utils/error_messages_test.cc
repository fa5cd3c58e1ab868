#include "utils/error_messages.h"
#include <gtest/gtest.h>
TEST(Placeholder, Builds) { EXPECT_EQ(velmor::exception::MakeCommandMessage("%d", 3), "3"); }
