// What only the Win32 backend promises: global-memory blocks, the registry's
// machine identifier, the shell's folders and owner-only access lists.
#if defined(_WIN32)

#include <gtest/gtest.h>

#include <windows.h>
#include <aclapi.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/base.h"
#include "platform/memory.h"
#include "support/temp_dir.h"

namespace {

using ao::test::TempDir;

TEST(Win32Memory, BlocksAreGlobalMemoryTheApplicationMayFree) {
  void* block = ao::platform::AllocZeroed(1000);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(::GlobalSize(block), 1000u);
  block = ao::platform::ReallocZeroed(block, 5000);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(::GlobalSize(block), 5000u);
  EXPECT_EQ(::GlobalFree(block), nullptr);  // null: freed
}

TEST(Win32Identity, TheMachineIsNamedByItsMachineGuid) {
  char text[256] = {};
  DWORD size = sizeof text;
  ASSERT_EQ(::RegGetValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Cryptography", "MachineGuid",
                           RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, text, &size),
            ERROR_SUCCESS);
  uint32_t length = 0;
  unsigned char* id = ao::platform::GetSystemIdentifier(&length);
  ASSERT_NE(id, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(id), length), text);
  EXPECT_EQ(length, 36u);
  ao::platform::FreeBlock(id);
}

TEST(Win32Folders, AppDataIsTheRoamingFolderAndTheModuleIsThisProgram) {
  std::string folder;
  ASSERT_TRUE(ao::platform::GetAppDataFolder(&folder));
  const char* appData = std::getenv("APPDATA");
  if (appData != nullptr) {
    EXPECT_EQ(folder, appData);
  }
  EXPECT_TRUE(std::filesystem::is_directory(folder));

  std::string program;
  ASSERT_TRUE(ao::platform::GetMainModulePath(&program));
  EXPECT_EQ(std::filesystem::path(program).filename().string(), "aostore_platform_tests.exe");
  EXPECT_EQ(program[1], ':');
}

// Wine keeps no access lists of its own on a Unix file system: it maps them
// to mode bits and makes up a list from those when asked.
bool UnderWine() {
  HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
  return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

// The access list of path: protected, one entry, full access for the user
// running the test.
void ExpectOwnerOnly(const std::string& path) {
  SCOPED_TRACE(path);
  if (UnderWine()) return;
  PACL acl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(::GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &acl,
                                    nullptr, &descriptor),
            ERROR_SUCCESS);
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  ASSERT_TRUE(::GetSecurityDescriptorControl(descriptor, &control, &revision));
  EXPECT_NE(control & SE_DACL_PROTECTED, 0);
  ASSERT_NE(acl, nullptr);
  ASSERT_EQ(acl->AceCount, 1);
  void* ace = nullptr;
  ASSERT_TRUE(::GetAce(acl, 0, &ace));
  auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
  EXPECT_EQ(allowed->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
  EXPECT_EQ(allowed->Mask & FILE_ALL_ACCESS, static_cast<DWORD>(FILE_ALL_ACCESS));

  HANDLE token = nullptr;
  ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
  std::vector<DWORD64> user(64);
  DWORD size = 0;
  const BOOL gotUser = ::GetTokenInformation(token, TokenUser, user.data(), 512, &size);
  ::CloseHandle(token);
  ASSERT_TRUE(gotUser);
  EXPECT_TRUE(::EqualSid(&allowed->SidStart, reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid));
  ::LocalFree(descriptor);
}

TEST(Win32Folders, WhatTheStoresCreateIsPrivateToTheUser) {
  TempDir dir;
  // Either separator may appear in a path handed in.
  const std::string deep = dir.path() + "\\a/b\\c";
  ASSERT_TRUE(ao::platform::VerifyOrCreateDirectory(deep.c_str()));
  EXPECT_TRUE(std::filesystem::is_directory(deep));
  EXPECT_TRUE(ao::platform::VerifyOrCreateDirectory((deep + "\\").c_str()));
  ExpectOwnerOnly(dir.path() + "\\a");
  ExpectOwnerOnly(deep);

  const std::string file = dir.File("private.dat");
  ASSERT_TRUE(ao::platform::CreateOwnerOnlyFile(file.c_str()));
  EXPECT_FALSE(ao::platform::CreateOwnerOnlyFile(file.c_str()));
  ExpectOwnerOnly(file);

  const std::string shared = dir.File("shared.dat");
  ao::test::WriteWholeFile(shared, {1});
  ASSERT_TRUE(ao::platform::RestrictFileToOwner(shared.c_str()));
  ExpectOwnerOnly(shared);
  EXPECT_FALSE(ao::platform::RestrictFileToOwner(dir.File("missing.dat").c_str()));

  // A file in the way is no folder, and nothing is made below it.
  EXPECT_FALSE(ao::platform::VerifyOrCreateDirectory(shared.c_str()));
  EXPECT_FALSE(ao::platform::VerifyOrCreateDirectory((shared + "\\below").c_str()));
  EXPECT_FALSE(ao::platform::VerifyOrCreateDirectory(""));
}

}  // namespace

#endif  // _WIN32
