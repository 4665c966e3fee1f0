// CVastrelFile over real container files in a temporary folder.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "support/temp_dir.h"

namespace {

using ao::test::Pattern;

constexpr uint32_t kDataType = 0;
constexpr uint32_t kFolderType = 1;

class VastrelFile : public ::testing::Test {
 protected:
  std::string Path() const { return dir_.File("data.vst"); }

  // A container holding the folder "F" with the child "c" of the given bytes.
  void MakeChild(const std::vector<unsigned char>& bytes) {
    CVastrelFile file;
    ASSERT_EQ(file.Open(Path().c_str(), 2), 1);
    ASSERT_EQ(file.OpenOrCreateGenericStream("F", 0, kFolderType), 1);
    std::vector<unsigned char> copy = bytes;
    ASSERT_EQ(file.WriteGenericChildStream("c", copy.data(), static_cast<int32_t>(copy.size()), 0, 0), 1);
  }

  ao::test::TempDir dir_;
};

TEST_F(VastrelFile, OpenModes) {
  CVastrelFile file;
  // Reading a file that is not there fails and creates nothing.
  EXPECT_EQ(file.Open(Path().c_str(), 1), 0);
  EXPECT_EQ(file.GetStorage(), nullptr);
  EXPECT_EQ(file.GetOpenMode(), 0);
  EXPECT_FALSE(ao::test::FileExists(Path()));

  // Mode 2 creates it and says so.
  EXPECT_EQ(file.Open(Path().c_str(), 2), 1);
  EXPECT_EQ(file.WasCreated(), 1);
  EXPECT_EQ(file.GetOpenMode(), 2);
  EXPECT_TRUE(ao::test::FileExists(Path()));

  EXPECT_EQ(file.Open(Path().c_str(), 3), 1);
  EXPECT_EQ(file.GetOpenMode(), 3);

  // A refused mode still closes what was open.
  EXPECT_EQ(file.Open(Path().c_str(), 0), 0);
  EXPECT_EQ(file.GetStorage(), nullptr);
  EXPECT_EQ(file.Close(), 0);
  ASSERT_EQ(file.Open(Path().c_str(), 1), 1);
  EXPECT_EQ(file.Open(Path().c_str(), 4), 0);
  EXPECT_EQ(file.GetStorage(), nullptr);

  CVastrelFile second;
  EXPECT_EQ(second.Open(Path().c_str(), 2), 1);
  EXPECT_EQ(second.WasCreated(), 0);
}

TEST_F(VastrelFile, NumberedStreamsAreNamedInHexAndWalkedAlone) {
  {
    CVastrelFile file;
    ASSERT_EQ(file.Open(Path().c_str(), 2), 1);
    for (const char* name : {"System", "10000000", "0fffffff", "ffffffff", "1234abcd"}) {
      ASSERT_EQ(file.OpenOrCreateGenericStream(name, 0, kDataType), 1) << name;
    }
  }
  CVastrelFile file;
  ASSERT_EQ(file.Open(Path().c_str(), 1), 1);
  std::vector<std::string> visited;
  while (file.OpenNextStream() == 1) visited.emplace_back(file.GetStreamName());
  EXPECT_EQ(visited, (std::vector<std::string>{"10000000", "1234abcd"}));
  // The end of the walk leaves nothing current.
  EXPECT_EQ(file.GetStreamName(), nullptr);

  // The unfiltered walk sees all five.
  int count = 0;
  while (file.OpenNextGenericStream() == 1) ++count;
  EXPECT_EQ(count, 5);
  // Numbered names are lower-case hexadecimal without leading zeros.
  char out[9];
  EXPECT_STREQ(CVastrelFile::CreateStreamName(0x1234abcd, out), "1234abcd");
  EXPECT_STREQ(CVastrelFile::CreateStreamName(255, out), "ff");
  EXPECT_STREQ(CVastrelFile::CreateStreamName(0xFFFFFFFF, nullptr), "ffffffff");
}

TEST_F(VastrelFile, WritingAChildWithoutAppendOverwritesItsStartOnly) {
  std::vector<unsigned char> old = Pattern(100, 1);
  MakeChild(old);
  CVastrelFile file;
  ASSERT_EQ(file.Open(Path().c_str(), 2), 1);
  ASSERT_EQ(file.OpenGenericStream("F", 1), 1);
  std::vector<unsigned char> head = Pattern(10, 2);
  ASSERT_EQ(file.WriteGenericChildStream("c", head.data(), 10, 0, 0), 1);
  // The write does not make the child current.
  EXPECT_EQ(file.GetChildStream(), nullptr);

  ASSERT_EQ(file.DoesGenericChildStreamExist("c"), 1);
  EXPECT_EQ(file.GetChildStreamSize(), 100);
  std::vector<unsigned char> expected = old;
  std::memcpy(expected.data(), head.data(), 10);
  std::vector<unsigned char> stored(100);
  EXPECT_EQ(file.ReadGenericChildStream(stored.data(), 100), 100);
  EXPECT_EQ(stored, expected);
  EXPECT_EQ(file.CloseChildStream(0), 1);

  // With append the bytes go to the end.
  ASSERT_EQ(file.WriteGenericChildStream("c", head.data(), 10, 1, 0), 1);
  ASSERT_EQ(file.DoesGenericChildStreamExist("c"), 1);
  EXPECT_EQ(file.GetChildStreamSize(), 110);
  // A negative length is never a complete write.
  EXPECT_EQ(file.WriteGenericChildStream("c", head.data(), -1, 1, 0), 0);
}

TEST_F(VastrelFile, ReadTagSeekBackMovesBackByTheLengthAskedFor) {
  std::vector<unsigned char> bytes = Pattern(21, 3);
  CVastrelFile file;
  ASSERT_EQ(file.Open(Path().c_str(), 2), 1);
  ASSERT_EQ(file.OpenOrCreateGenericStream("10000000", 0, kDataType), 1);
  ASSERT_EQ(file.WriteGenericStream(bytes.data(), 21), 1);
  ASSERT_EQ(file.GoToBeginningOfGenericStream(), 1);

  // A whole tag is peeked and read again.
  unsigned char tag[16] = {};
  unsigned char again[16] = {};
  EXPECT_EQ(file.ReadTagSeekBack(tag, 4), 4);
  EXPECT_EQ(file.ReadGenericStream(again, 4), 4);
  EXPECT_EQ(0, std::memcmp(tag, again, 4));

  // At 16 with 5 bytes left: 5 come, and the stream goes back 16, to 5.
  ASSERT_EQ(file.SeekForward(12), 1);
  EXPECT_EQ(file.ReadTagSeekBack(tag, 16), 5);
  EXPECT_EQ(0, std::memcmp(tag, bytes.data() + 16, 5));
  unsigned char next = 0;
  EXPECT_EQ(file.ReadGenericStream(&next, 1), 1);
  EXPECT_EQ(next, bytes[5]);

  // Nothing left to read: 0 and no move.
  ASSERT_EQ(file.SeekForward(15), 1);
  EXPECT_EQ(file.ReadTagSeekBack(tag, 16), 0);
  EXPECT_EQ(file.ReadGenericStream(&next, 1), 0);
}

TEST_F(VastrelFile, SeekBackChildStreamCountsTheBufferFirst) {
  std::vector<unsigned char> bytes = Pattern(30, 4);
  MakeChild(bytes);
  CVastrelFile file;
  ASSERT_EQ(file.Open(Path().c_str(), 1), 1);
  ASSERT_EQ(file.OpenGenericStreams("F", "c"), 1);
  unsigned char piece[10] = {};
  ASSERT_EQ(file.ReadGenericChildStream(piece, 10), 10);
  // The rest (bytes 10..29) goes to the buffer; the stream is at its end.
  ASSERT_EQ(file.ReadGenericChildStream_BufferRest(), 1);
  ASSERT_EQ(file.ReadGenericChildStream(piece, 4), 4);
  EXPECT_EQ(0, std::memcmp(piece, bytes.data() + 10, 4));

  // Position 4, back 10: the buffer goes to 0 and the stream back 6.
  EXPECT_EQ(file.SeekBackChildStream(10), 1);
  EXPECT_EQ(file.GetChildStream()->GetCurDataPos(), 24);
  ASSERT_EQ(file.ReadGenericChildStream(piece, 3), 3);
  EXPECT_EQ(0, std::memcmp(piece, bytes.data() + 10, 3));

  // Within the buffer only its position moves.
  EXPECT_EQ(file.SeekBackChildStream(2), 1);
  EXPECT_EQ(file.GetChildStream()->GetCurDataPos(), 24);
  ASSERT_EQ(file.ReadGenericChildStream(piece, 1), 1);
  EXPECT_EQ(piece[0], bytes[11]);

  // Reading runs dry at the end of the buffer.
  std::vector<unsigned char> rest(40);
  EXPECT_EQ(file.ReadGenericChildStream(rest.data(), 40), 18);
  EXPECT_EQ(file.ReadGenericChildStream(rest.data(), 40), 0);
  EXPECT_EQ(file.ReadGenericChildStream_DecryptRest(0), 0);  // no key, nothing deciphered
}

TEST_F(VastrelFile, RemovingChildren) {
  MakeChild(Pattern(8, 5));
  CVastrelFile file;
  ASSERT_EQ(file.Open(Path().c_str(), 2), 1);
  // A missing child is no failure; a missing or data generic stream is.
  EXPECT_EQ(file.RemoveGenericChildStream("F", "absent"), 1);
  EXPECT_EQ(file.RemoveGenericChildStream("nothing", "c"), 0);
  ASSERT_EQ(file.OpenOrCreateGenericStream("plain", 0, kDataType), 1);
  EXPECT_EQ(file.RemoveGenericChildStream("plain", "c"), 0);
  EXPECT_NE(file.GetGenericStream(), nullptr);  // stays current

  EXPECT_EQ(file.RemoveGenericChildStream("F", "c"), 1);
  EXPECT_EQ(file.GetGenericStream(), nullptr);
  ASSERT_EQ(file.OpenGenericStream("F", 1), 1);
  EXPECT_EQ(file.DoesGenericChildStreamExist("c"), 0);
}

TEST_F(VastrelFile, IteratingWithRemoveCurrentDeletesEachHandledChild) {
  CVastrelFile file;
  ASSERT_EQ(file.Open(Path().c_str(), 2), 1);
  ASSERT_EQ(file.OpenOrCreateGenericStream("F", 0, kFolderType), 1);
  unsigned char byte = 7;
  for (const char* name : {"a", "b", "c"}) ASSERT_EQ(file.WriteGenericChildStream(name, &byte, 1, 0, 0), 1);

  int64_t cursor = 0;
  std::vector<std::string> seen;
  while (file.OpenNextGenericChildStreamUsingParentStream(file.GetGenericStream(), &cursor, 1) == 1) {
    seen.emplace_back(file.GetChildStream()->GetName());
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c"}));
  for (const char* name : {"a", "b", "c"}) EXPECT_EQ(file.DoesGenericChildStreamExist(name), 0) << name;
}

TEST_F(VastrelFile, ChildNamesAreWalkedAndRenamed) {
  MakeChild(Pattern(4, 6));
  CVastrelFile file;
  ASSERT_EQ(file.Open(Path().c_str(), 1), 1);
  ASSERT_EQ(file.OpenGenericStream("F", 0), 1);
  aoStream* iterator = nullptr;
  char* name = file.GetNextChildStreamName(iterator);
  ASSERT_NE(iterator, nullptr);
  EXPECT_STREQ(name, "c");
  name = file.GetNextChildStreamName(iterator);
  EXPECT_EQ(iterator, nullptr);
  EXPECT_STREQ(name, "c");
  file.Close();

  // Renaming a child refuses a name that is taken.
  ASSERT_EQ(file.Open(Path().c_str(), 2), 1);
  ASSERT_EQ(file.OpenGenericStream("F", 1), 1);
  unsigned char byte = 1;
  ASSERT_EQ(file.WriteGenericChildStream("old", &byte, 1, 0, 0), 1);
  ASSERT_EQ(file.WriteGenericChildStream("taken", &byte, 1, 0, 0), 1);
  EXPECT_EQ(file.RenameGenericChildStream("old", "taken"), 0);
  EXPECT_EQ(file.RenameGenericChildStream("old", "c"), 0);
  EXPECT_EQ(file.RenameGenericChildStream("missing", "new"), 0);
  EXPECT_EQ(file.RenameGenericChildStream("old", "new"), 1);
  EXPECT_EQ(file.DoesGenericChildStreamExist("old"), 0);
  EXPECT_EQ(file.DoesGenericChildStreamExist("new"), 1);
}

TEST(VastrelFileRemove, DeletesFilesWithoutExtensionThenTheEmptyFolder) {
  ao::test::TempDir dir;
  std::string folder = dir.File("element");
  ASSERT_EQ(ao::test::FileExists(folder), false);
  std::filesystem::create_directories(folder + "/sub");
  for (const char* name : {"10000000", "misc", "notes.txt"}) ao::test::WriteWholeFile(folder + "/" + name, {1, 2});

  CVastrelFile::Remove(folder.c_str());
  EXPECT_FALSE(ao::test::FileExists(folder + "/10000000"));
  EXPECT_FALSE(ao::test::FileExists(folder + "/misc"));
  EXPECT_TRUE(ao::test::FileExists(folder + "/notes.txt"));
  EXPECT_TRUE(ao::test::FileExists(folder + "/sub"));

  std::filesystem::remove(folder + "/notes.txt");
  std::filesystem::remove(folder + "/sub");
  ao::test::WriteWholeFile(folder + "/20000000", {3});
  CVastrelFile::Remove(folder.c_str());
  EXPECT_FALSE(ao::test::FileExists(folder));

  // A file is not a folder: left alone.
  std::string file = dir.File("single");
  ao::test::WriteWholeFile(file, {4});
  CVastrelFile::Remove(file.c_str());
  EXPECT_TRUE(ao::test::FileExists(file));
}

}  // namespace
