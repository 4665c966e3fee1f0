// The test suites run once more with file mapping turned off: the variable
// AOSTORE_FILE_MAPPING=0 (which the tool honours as well) sets the switch
// before any container is opened.
#ifndef AOSTORE_TESTS_SUPPORT_FILE_MAPPING_H
#define AOSTORE_TESTS_SUPPORT_FILE_MAPPING_H

#include <cstdlib>
#include <cstring>

#include "aostore/storage.h"

namespace ao::test {

inline void ApplyFileMappingSetting() {
  const char* setting = std::getenv("AOSTORE_FILE_MAPPING");
  if (setting != nullptr && std::strcmp(setting, "0") == 0) aoStorage::g_bUseFileMapping = 0;
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_SUPPORT_FILE_MAPPING_H
