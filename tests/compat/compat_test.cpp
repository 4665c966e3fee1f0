// The fixtures this build writes, read back by this build; the scripts run
// the same writer and checker across the Windows and the Linux build.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "compat/fixtures.h"
#include "genfile/known_answers.h"
#include "support/temp_dir.h"

namespace {

using ao::compat::Bytes;
using ao::compat::In;

std::string Joined(const ao::compat::Problems& problems) {
  std::string text;
  for (const std::string& problem : problems.list()) text += problem + "\n";
  return text;
}

bool Mentions(const ao::compat::Problems& problems, const std::string& what) {
  return std::any_of(problems.list().begin(), problems.list().end(),
                     [&](const std::string& problem) { return problem.find(what) != std::string::npos; });
}

TEST(CompatFixtures, WhatThisBuildWritesItReadsBack) {
  ao::test::TempDir dir;
  const ao::compat::Problems written = ao::compat::WriteFixtures(dir.path());
  ASSERT_TRUE(written.list().empty()) << Joined(written);
  const ao::compat::Problems read = ao::compat::VerifyFixtures(dir.path());
  EXPECT_TRUE(read.list().empty()) << Joined(read);
}

TEST(CompatFixtures, AlteredFixturesAreCaught) {
  ao::test::TempDir dir;
  ASSERT_TRUE(ao::compat::WriteFixtures(dir.path()).list().empty());
  // One byte of the scrambled key material changed in place.
  const std::string keyed = In(In(dir.path(), "element"), "keyed.dat");
  Bytes file = ao::compat::ReadFile(keyed);
  Bytes scrambled = ao::test::KnownMaterial();
  for (unsigned char& byte : scrambled) byte ^= 0x5C;
  const auto at = std::search(file.begin(), file.end(), scrambled.begin(), scrambled.end());
  ASSERT_NE(at, file.end());
  at[100] ^= 0x01;
  ASSERT_TRUE(ao::compat::WriteFile(keyed, file));
  // The 32-bit container where the 64-bit one belongs, and a log cut short.
  ASSERT_TRUE(ao::compat::WriteFile(In(dir.path(), "v2.dat"), ao::compat::ReadFile(In(dir.path(), "v1.dat"))));
  Bytes log = ao::compat::ReadFile(In(dir.path(), "edits.log"));
  log.resize(log.size() - 1);
  ASSERT_TRUE(ao::compat::WriteFile(In(dir.path(), "edits.log"), log));

  const ao::compat::Problems problems = ao::compat::VerifyFixtures(dir.path());
  EXPECT_TRUE(Mentions(problems, "the key record's bytes")) << Joined(problems);
  EXPECT_TRUE(Mentions(problems, "the key material read back")) << Joined(problems);
  EXPECT_TRUE(Mentions(problems, "v2.dat: version 1")) << Joined(problems);
  EXPECT_TRUE(Mentions(problems, "this build records another log")) << Joined(problems);
}

}  // namespace
