// Typed entries on containers and folders: values survive a reopen, are
// stored little-endian, and getters fall back to the caller's default.
#include <gtest/gtest.h>

#include <string>

#include "aostore/aostore.h"
#include "support/container_test.h"

namespace ao::test {
namespace {

using TypedEntries = ContainerTest;

TEST_F(TypedEntries, ContainerValuesSurviveAReopen) {
  EXPECT_EQ(storage_->SetEntry("int", -5), 1);
  EXPECT_EQ(storage_->SetEntry("dword", 0xF0000001u), 1);
  EXPECT_EQ(storage_->SetEntry("double", 2.25), 1);
  EXPECT_EQ(storage_->SetEntry("int64", static_cast<int64_t>(-0x123456789LL)), 1);
  EXPECT_EQ(storage_->SetEntry("string", "hello"), 1);
  EXPECT_EQ(storage_->SetEntryFast("fint", 42), 1);
  EXPECT_EQ(storage_->SetEntryFast("fdouble", -0.5), 1);
  EXPECT_EQ(storage_->SetEntryFast("fint64", static_cast<int64_t>(1) << 40), 1);
  EXPECT_EQ(storage_->SetEntryFast("fstring", "fast"), 1);
  ASSERT_NE(Reopen(), nullptr);

  EXPECT_EQ(storage_->GetEntry("int", 0), -5);
  EXPECT_EQ(storage_->GetEntry("dword", 0u), 0xF0000001u);
  EXPECT_EQ(storage_->GetEntry("double", 0.0), 2.25);
  EXPECT_EQ(storage_->GetEntry("int64", static_cast<int64_t>(0)), -0x123456789LL);
  EXPECT_EQ(storage_->GetEntry("string", "none"), "hello");
  EXPECT_EQ(storage_->GetEntryFast("fint", 0), 42);
  EXPECT_EQ(storage_->GetEntryFast("fdouble", 0.0), -0.5);
  EXPECT_EQ(storage_->GetEntryFast("fint64", static_cast<int64_t>(0)), static_cast<int64_t>(1) << 40);
  EXPECT_EQ(storage_->GetEntryFast("fstring", ""), "fast");

  EXPECT_EQ(ReadChild(storage_, "int"), (Bytes{0xFB, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(ReadChild(storage_, "int64"), (Bytes{0x77, 0x98, 0xBA, 0xDC, 0xFE, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(ReadChild(storage_, "string"), (Bytes{5, 0, 'h', 'e', 'l', 'l', 'o'}));
}

TEST_F(TypedEntries, MissingNamesAndFoldersGiveTheDefault) {
  aoStream* folder = storage_->CreateStream("folder", 1, kAoModeEdit);
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(folder->GetEntry("missing", 7), 7);
  EXPECT_EQ(folder->GetEntry("missing", 8u), 8u);
  EXPECT_EQ(folder->GetEntry("missing", 1.5), 1.5);
  EXPECT_EQ(folder->GetEntry("missing", static_cast<int64_t>(-9)), -9);
  EXPECT_EQ(folder->GetEntry("missing", static_cast<uint64_t>(9)), 9u);
  EXPECT_EQ(folder->GetEntry("missing", "dflt"), "dflt");
  aoStream* sub = folder->CreateStream("sub", 1, kAoModeEdit, 1);
  ASSERT_NE(sub, nullptr);
  sub->Release();
  EXPECT_EQ(folder->GetEntry("sub", 3), 3);  // a child folder is no entry
  folder->Release();

  for (const char* name : {"absent", "folder"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(storage_->GetEntry(name, 11), 11);
    EXPECT_EQ(storage_->GetEntry(name, 12u), 12u);
    EXPECT_EQ(storage_->GetEntry(name, 0.25), 0.25);
    EXPECT_EQ(storage_->GetEntry(name, static_cast<int64_t>(13)), 13);
    EXPECT_EQ(storage_->GetEntry(name, "dflt"), "dflt");
    EXPECT_EQ(storage_->GetEntryFast(name, 14), 14);
    EXPECT_EQ(storage_->GetEntryFast(name, "fast dflt"), "fast dflt");
    void* data = reinterpret_cast<void*>(1);
    unsigned int size = 5;
    EXPECT_EQ(storage_->GetEntryErasedOld(name, &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0u);
  }
  EXPECT_EQ(storage_->GetEntry("absent", static_cast<const char*>(nullptr)), "");
}

TEST_F(TypedEntries, FolderValuesIncludingRectAndSize) {
  aoStream* folder = storage_->OpenOrCreateStream("prefs", 1);
  ASSERT_NE(folder, nullptr);
  RECT rect{-1, 2, 300, 400};
  SIZE size{640, -480};
  EXPECT_EQ(folder->SetEntry("rect", &rect), 1);
  EXPECT_EQ(folder->SetEntry("size", &size), 1);
  EXPECT_EQ(folder->SetEntry("int", 17), 1);
  EXPECT_EQ(folder->SetEntry("u64", static_cast<uint64_t>(0xFFFFFFFFFFFFFFFEULL)), 1);
  EXPECT_EQ(folder->SetEntry("double", 1e100), 1);
  EXPECT_EQ(folder->SetEntry("text", "folder text"), 1);
  folder->Release();
  ASSERT_NE(Reopen(), nullptr);

  folder = storage_->OpenStream("prefs", kAoModeEdit);
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(ReadChild(folder, "rect"),
            (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0, 0x2C, 1, 0, 0, 0x90, 1, 0, 0}));
  EXPECT_EQ(ReadChild(folder, "size"), (Bytes{0x80, 2, 0, 0, 0x20, 0xFE, 0xFF, 0xFF}));
  RECT gotRect{};
  EXPECT_EQ(folder->GetEntry("rect", &gotRect, nullptr), &gotRect);
  EXPECT_EQ(gotRect.right, 300);
  EXPECT_EQ(gotRect.left, -1);
  SIZE gotSize{};
  folder->GetEntry("size", &gotSize, nullptr);
  EXPECT_EQ(gotSize.cy, -480);
  EXPECT_EQ(folder->GetEntry("int", 0), 17);
  EXPECT_EQ(folder->GetEntry("u64", static_cast<uint64_t>(0)), 0xFFFFFFFFFFFFFFFEULL);
  EXPECT_EQ(folder->GetEntry("double", 0.0), 1e100);
  EXPECT_EQ(folder->GetEntry("text", ""), "folder text");

  // A missing entry, or one too short for the value, gives the default when
  // there is one and leaves the output alone when there is none.
  const RECT defRect{9, 9, 9, 9};
  RECT out{1, 1, 1, 1};
  folder->GetEntry("nothing", &out, &defRect);
  EXPECT_EQ(out.bottom, 9);
  out = RECT{1, 1, 1, 1};
  folder->GetEntry("size", &out, nullptr);  // 8 bytes where 16 are needed
  EXPECT_EQ(out.left, 1);
  const SIZE defSize{5, 6};
  SIZE outSize{0, 0};
  folder->GetEntry("nothing", &outSize, &defSize);
  EXPECT_EQ(outSize.cy, 6);
  folder->Release();
}

TEST_F(TypedEntries, AShorterStringKeepsTheLengthButReadsBackNew) {
  ASSERT_EQ(storage_->SetEntry("name", "a longer value"), 1);
  ASSERT_EQ(storage_->SetEntry("name", "short"), 1);
  EXPECT_EQ(ReadChild(storage_, "name").size(), 16u);
  EXPECT_EQ(storage_->GetEntry("name", ""), "short");
  // An int over a longer old value keeps the old tail as well.
  ASSERT_EQ(storage_->SetEntry("wide", static_cast<int64_t>(-1)), 1);
  ASSERT_EQ(storage_->SetEntry("wide", 0), 1);
  EXPECT_EQ(ReadChild(storage_, "wide"), (Bytes{0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
}


TEST_F(TypedEntries, FlatExportsForwardToTheMembers) {
  EXPECT_EQ(Korvash_SetDWordEntry(storage_, "dw", 99), 1);
  EXPECT_EQ(Korvash_GetDWordEntry(storage_, "dw", 0), 99);
  EXPECT_EQ(Korvash_GetDWordEntry(storage_, "none", 4), 4);
  EXPECT_EQ(Korvash_GetDWordEntry(nullptr, "dw", 4), 4);

  unsigned char value[] = {1, 2, 3};
  EXPECT_EQ(Korvash_SetEntryEraseOld(storage_, "blob", value, 3), 1);
  EXPECT_EQ(ReadChild(storage_, "blob"), (Bytes{3, 0, 0, 0, 1, 2, 3}));  // always with the size
  void* data = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(Korvash_GetEntryErasedOld(storage_, "blob", &data, &size), 1);
  ASSERT_EQ(size, 3u);
  EXPECT_EQ(Bytes(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + 3), (Bytes{1, 2, 3}));
  aoFreeBuffer(data);

  aoStream* folder = storage_->OpenOrCreateStream("f", 1);
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(CompStream_SetEntryEraseOld(folder, "child", value, 2), 1);
  EXPECT_EQ(ReadChild(folder, "child"), (Bytes{2, 0, 0, 0, 1, 2}));
  ASSERT_EQ(CompStream_GetEntryErasedOld(folder, "child", &data, &size), 1);
  EXPECT_EQ(size, 2u);
  aoFreeBuffer(data);
  EXPECT_EQ(CompStream_GetEntryErasedOld(nullptr, "child", &data, &size), 0);
  folder->Release();
}

}  // namespace
}  // namespace ao::test
