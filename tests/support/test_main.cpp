// The main of every test binary.
#include <gtest/gtest.h>

#include "support/file_mapping.h"

int main(int argc, char** argv) {
  ao::test::ApplyFileMappingSetting();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
