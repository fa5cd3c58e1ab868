// Test entry point shared by every test program: the loggers exist with their
// default levels before any test runs, as they do in the program.
#include <gtest/gtest.h>

#include "utils/logging.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  velmor::logging::SetUpLogging(nullptr, "off", false, true, nullptr, nullptr);
  return RUN_ALL_TESTS();
}
