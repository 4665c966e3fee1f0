// CPathLoader: nested streams opened, created and deleted by path, and the
// streams the loader keeps open along the way.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/container_test.h"

namespace {

using ao::test::Bytes;

std::vector<std::string> Names(const CPathLoader& loader) {
  std::vector<std::string> names;
  for (size_t i = 0; i < loader.GetSize(); ++i) names.emplace_back(loader.GetAt(i)->GetName());
  return names;
}

class PathLoader : public ao::test::ContainerTest {
 protected:

  // a/b/c as folders, with a data stream "plain" in a holding "text".
  void MakeTree() {
    CPathLoader loader;
    aoStream* a = loader.GetStreamByPath(storage_, "a/b/c", 1, 1);
    ASSERT_NE(a, nullptr);
    aoStream* plain = loader.GetAt(0)->OpenOrCreateStream("plain", 0);
    ASSERT_NE(plain, nullptr);
    ASSERT_EQ(plain->Write("text", 4, false, nullptr), 4);
    plain->Release();
  }
};

TEST_F(PathLoader, CreatesEveryLevelAsAFolderAndKeepsThemOpen) {
  CPathLoader loader;
  aoStream* c = loader.GetStreamByPath(storage_, "a/b/c", 1, 1);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(Names(loader), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(loader.GetAt(2), c);
  for (size_t i = 0; i < loader.GetSize(); ++i) EXPECT_NE(loader.GetAt(i)->IsFolder(), 0) << i;
  EXPECT_THROW(loader.GetAt(3), std::invalid_argument);
  loader.CloseOpenStorages();
  EXPECT_EQ(loader.GetSize(), 0u);

  // The tree is on disk: a fresh container finds it without creating.
  ASSERT_NE(Reopen(), nullptr);
  CPathLoader again;
  aoStream* found = again.GetStreamByPath(storage_, "a/b/c", 0, 0);
  ASSERT_NE(found, nullptr);
  EXPECT_STREQ(found->GetName(), "c");
  EXPECT_EQ(found->GetMode(), kAoModeInspect);
  EXPECT_EQ(again.GetSize(), 3u);
  // Creating again opens what exists: "a" still holds one child.
  again.CloseOpenStorages();
  ASSERT_NE(again.GetStreamByPath(storage_, "a/b", 1, 1), nullptr);
  EXPECT_EQ(again.GetAt(0)->GetNumChildren(), 1u);
  EXPECT_EQ(again.GetAt(1)->GetMode(), kAoModeEdit);
}

TEST_F(PathLoader, LookUpsFailOnMissingEmptyOrPlainLevels) {
  MakeTree();
  CPathLoader loader;
  EXPECT_EQ(loader.GetStreamByPath(storage_, "", 0, 0), nullptr);
  EXPECT_EQ(loader.GetStreamByPath(storage_, "/a", 0, 0), nullptr);
  EXPECT_EQ(loader.GetSize(), 0u);

  // The empty middle segment names no stream; "a" stays open.
  EXPECT_EQ(loader.GetStreamByPath(storage_, "a//b", 0, 0), nullptr);
  EXPECT_EQ(Names(loader), (std::vector<std::string>{"a"}));
  // A plain stream in the middle has no children.
  EXPECT_EQ(loader.GetStreamByPath(storage_, "a/plain/x", 0, 0), nullptr);
  EXPECT_EQ(Names(loader), (std::vector<std::string>{"a", "a", "plain"}));
  EXPECT_EQ(loader.GetStreamByPath(storage_, "a/b/missing", 0, 0), nullptr);
  EXPECT_EQ(loader.GetStreamByPath(storage_, "nothing/b", 0, 0), nullptr);
  EXPECT_EQ(Names(loader), (std::vector<std::string>{"a", "a", "plain", "a", "b"}));
  // Nor can the creating form put a folder under a plain stream.
  EXPECT_EQ(loader.GetStreamByPath(storage_, "a/plain/x", 1, 1), nullptr);

  // The plain stream itself is reachable, and reads as written.
  aoStream* plain = loader.GetStreamByPath(storage_, "a/plain", 0, 0);
  ASSERT_NE(plain, nullptr);
  char text[8] = {};
  EXPECT_EQ(plain->Read(text, sizeof text), 4);
  EXPECT_STREQ(text, "text");
}

TEST_F(PathLoader, ContinuesBelowAStreamTheCallerHolds) {
  MakeTree();
  aoStream* a = storage_->OpenStream("a", kAoModeEdit);
  ASSERT_NE(a, nullptr);
  {
    CPathLoader loader;
    EXPECT_EQ(loader.GetSubStreamByPath(a, "", 0, 0), a);
    EXPECT_EQ(loader.GetSize(), 0u);
    aoStream* c = loader.GetSubStreamByPath(a, "b/c", 1, 0);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->GetMode(), kAoModeEdit);
    EXPECT_EQ(Names(loader), (std::vector<std::string>{"b", "c"}));
    aoStream* d = loader.GetSubStreamByPath(c, "d", 1, 1);
    ASSERT_NE(d, nullptr);
    EXPECT_NE(d->IsFolder(), 0);
    EXPECT_EQ(loader.GetSize(), 3u);
  }  // the loader releases its three, and only those
  EXPECT_EQ(a->IsStreamOpen("b"), nullptr);
  a->Release();
}

TEST_F(PathLoader, DeletesByPathAndReleasesEverything) {
  MakeTree();
  CPathLoader loader;
  ASSERT_NE(loader.GetStreamByPath(storage_, "a/plain", 0, 0), nullptr);

  EXPECT_EQ(loader.DeleteStreamByPath(storage_, "a/b"), 1);
  // Earlier look-ups are released too.
  EXPECT_EQ(loader.GetSize(), 0u);
  EXPECT_EQ(loader.GetStreamByPath(storage_, "a/b", 0, 0), nullptr);
  EXPECT_EQ(loader.GetStreamByPath(storage_, "a/b/c", 0, 0), nullptr);
  ASSERT_NE(loader.GetStreamByPath(storage_, "a/plain", 0, 0), nullptr);
  loader.CloseOpenStorages();

  EXPECT_EQ(loader.DeleteStreamByPath(storage_, "a/b"), 0);
  EXPECT_EQ(loader.DeleteStreamByPath(storage_, "a/nothing"), 0);
  EXPECT_EQ(loader.GetSize(), 0u);

  // A root stream goes from the directory as well.
  EXPECT_EQ(loader.DeleteStreamByPath(storage_, "a"), 1);
  EXPECT_EQ(storage_->OpenStream("a", kAoModeInspect), nullptr);
  ASSERT_NE(Reopen(), nullptr);
  EXPECT_EQ(storage_->OpenStream("a", kAoModeInspect), nullptr);
  EXPECT_EQ(loader.GetStreamByPath(storage_, "a", 0, 0), nullptr);
}

}  // namespace
