// The local settings store: its path rule and its machine-bound entries.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "platform/base.h"
#include "platform/paths.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

// Opens the protected steps for the tests.
class LocalStore : public CLocalSettingStgFile {
 public:
  using CLocalSettingStgFile::CloseStgFile;
};

std::string PathRule(int useAppData, const char* folder, uint16_t capacity = 260) {
  std::vector<char> text(capacity, '#');
  Qo::QOSTR out{capacity, text.data()};
  if (CLocalSettingStgFile::GetLocalSettingsFilePath(&out, useAppData, folder) == 0) return "(failed)";
  return text.data();
}

class LocalSettings : public ::testing::Test {
 protected:
  void SetUp() override { ao::platform::SetSystemIdentifierForTesting("machine-a"); }
  void TearDown() override { ao::platform::SetSystemIdentifierForTesting(nullptr); }

  ao::test::TempDir temp_;
};

}  // namespace

TEST_F(LocalSettings, PathRule) {
  const std::string inFolder = ao::platform::JoinPath("/some/folder", "LocalSettings.dat");
  EXPECT_EQ(PathRule(1, "/some/folder"), inFolder);
  EXPECT_EQ(PathRule(0, "/some/folder"), inFolder);
#if !defined(_WIN32)
  const fs::path program = fs::read_symlink("/proc/self/exe");
  EXPECT_EQ(PathRule(0, nullptr), (program.parent_path() / "LocalSettings.dat").string());
#endif
  // The whole path must fit the caller's string, terminator included.
  EXPECT_EQ(PathRule(1, "/ab", 22), ao::platform::JoinPath("/ab", "LocalSettings.dat"));
  EXPECT_EQ(PathRule(1, "/abc", 22), "(failed)");
  EXPECT_EQ(CLocalSettingStgFile::GetLocalSettingsFilePath(nullptr, 1, "/x"), 0);

#if !defined(_WIN32)
  const char* saved = std::getenv("XDG_DATA_HOME");
  const std::string savedValue = saved ? saved : "";
  setenv("XDG_DATA_HOME", "/xdg/data", 1);
  EXPECT_EQ(PathRule(1, nullptr), "/xdg/data/LocalSettings.dat");
  if (saved) {
    setenv("XDG_DATA_HOME", savedValue.c_str(), 1);
  } else {
    unsetenv("XDG_DATA_HOME");
  }
#endif
}

TEST_F(LocalSettings, OpeningCreatesOnlyWhenAsked) {
  LocalStore store;
  const std::string path = temp_.File("LocalSettings.dat");
  EXPECT_EQ(store.OpenStgFolder(0, "Prefs", 0, temp_.path().c_str()), 0);
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(store.OpenStgFolder(0, nullptr, 1, temp_.path().c_str()), 0);
  ASSERT_EQ(store.OpenStgFolder(0, "Prefs", 1, temp_.path().c_str()), 1);
#if !defined(_WIN32)
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
#endif
  store.CloseStgFile();
  EXPECT_EQ(store.OpenStgFolder(0, "Prefs", 0, temp_.path().c_str()), 1);
  EXPECT_EQ(store.OpenStgFolder(0, "Other", 0, temp_.path().c_str()), 0);
}

TEST_F(LocalSettings, EntriesRoundTripOnlyAtTheirExactSize) {
  std::vector<unsigned char> value = ao::test::Pattern(40, 1);
  {
    LocalStore store;
    ASSERT_EQ(store.OpenStgFolder(0, "Prefs", 1, temp_.path().c_str()), 1);
    ASSERT_EQ(store.WriteLocalSettingEntry("Token", ao::test::Pattern(40, 2).data(), 40), 1);
    ASSERT_EQ(store.WriteLocalSettingEntry("Token", value.data(), 40), 1);  // replaces the first
  }
  // Only the cipher text reaches the file.
  const std::vector<unsigned char> file = ao::test::ReadWholeFile(temp_.File("LocalSettings.dat"));
  EXPECT_EQ(std::search(file.begin(), file.end(), value.begin(), value.end()), file.end());

  LocalStore store;
  ASSERT_EQ(store.OpenStgFolder(0, "Prefs", 0, temp_.path().c_str()), 1);
  std::vector<unsigned char> out(41, 0xEE);
  ASSERT_EQ(store.ReadLocalSettingEntry("Token", out.data(), 40), 1);
  EXPECT_EQ(std::vector<unsigned char>(out.begin(), out.begin() + 40), value);
  EXPECT_EQ(out[40], 0xEE);

  std::vector<unsigned char> untouched(41, 0xEE);
  EXPECT_EQ(store.ReadLocalSettingEntry("Token", untouched.data(), 41), 0);
  EXPECT_EQ(store.ReadLocalSettingEntry("Token", untouched.data(), 39), 0);
  EXPECT_EQ(store.ReadLocalSettingEntry("Missing", untouched.data(), 40), 0);
  // Another machine's identifier gives another key: the entry does not read.
  ao::platform::SetSystemIdentifierForTesting("machine-b");
  EXPECT_EQ(store.ReadLocalSettingEntry("Token", untouched.data(), 40), 0);
  EXPECT_EQ(untouched, std::vector<unsigned char>(41, 0xEE));
}

TEST_F(LocalSettings, NothingWorksWithoutAnOpenStream) {
  LocalStore store;
  unsigned char byte = 7;
  EXPECT_EQ(store.WriteLocalSettingEntry("Token", &byte, 1), 0);
  EXPECT_EQ(store.ReadLocalSettingEntry("Token", &byte, 1), 0);
  ASSERT_EQ(store.OpenStgFolder(0, "Prefs", 1, temp_.path().c_str()), 1);
  EXPECT_EQ(store.WriteLocalSettingEntry(nullptr, &byte, 1), 0);
  EXPECT_EQ(store.WriteLocalSettingEntry("Token", nullptr, 1), 0);
  EXPECT_EQ(byte, 7);
}
