// The name map on its own: what its sorted view and its bucket walk show
// while entries come, change and go.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "aostore/map_sort.h"

namespace {

tag_aoStreamOffset At(int64_t recordOffset) {
  tag_aoStreamOffset where;
  where.recordOffset = recordOffset;
  return where;
}

TEST(NameMap, TheSortedViewKeepsWhatItShowedUntilTheNextSort) {
  CMapStringToStreamOffset map;
  map.SetAt("b", At(2));
  map.SetAt("a", At(1));
  map.SetAt("c", At(3));
  map.Sort();
  ASSERT_EQ(map.GetSortedCount(), 3);
  const auto* a = map.GetSortedAt(0);
  const auto* b = map.GetSortedAt(1);

  // Replaced and removed entries: the map answers with the present, the
  // view with what it showed.
  map.SetAt("a", At(10));
  EXPECT_TRUE(map.RemoveKey("b"));
  EXPECT_FALSE(map.RemoveKey("b"));
  tag_aoStreamOffset found;
  ASSERT_TRUE(map.Lookup("a", found));
  EXPECT_EQ(found.recordOffset, 10);
  EXPECT_FALSE(map.Lookup("b", found));
  EXPECT_EQ(map.GetSortedAt(0), a);
  EXPECT_EQ(a->value.recordOffset, 1);
  EXPECT_EQ(b->key, "b");
  EXPECT_FALSE(map.Contains(a));
  EXPECT_FALSE(map.Contains(b));
  EXPECT_TRUE(map.Contains(map.Find("a")));
  EXPECT_FALSE(map.IsSortedValid());

  // Replacing an entry the view does not show changes it where it is.
  map.SetAt("d", At(4));
  const auto* d = map.Find("d");
  map.SetAt("d", At(40));
  EXPECT_EQ(map.Find("d"), d);
  EXPECT_EQ(d->value.recordOffset, 40);

  map.SetSortMode(1);
  map.Sort();
  ASSERT_EQ(map.GetSortedCount(), 3);
  EXPECT_EQ(map.GetSortedAt(0)->key, "d");
  EXPECT_EQ(map.GetSortedAt(2)->key, "a");
  EXPECT_EQ(map.GetSortedAt(2)->value.recordOffset, 10);
  EXPECT_EQ(map.GetSortedAt(3), nullptr);

  // Removing the last entry empties the view with the map.
  for (const char* name : {"a", "c"}) EXPECT_TRUE(map.RemoveKey(name));
  EXPECT_EQ(map.GetSortedCount(), 3);
  EXPECT_TRUE(map.RemoveKey("d"));
  EXPECT_EQ(map.GetSortedCount(), 0);
}

TEST(NameMap, TheBucketWalkVisitsEachEntryOnceAndStopsAtARemovedOne) {
  CMapStringToStreamOffset map;
  for (int i = 0; i < 500; ++i) map.SetAt(("name" + std::to_string(i)).c_str(), At(i));
  std::set<std::string> seen;
  for (const auto* assoc = map.GetFirstAssoc(); assoc != nullptr; assoc = map.GetNextAssoc(assoc))
    EXPECT_TRUE(seen.insert(assoc->key).second) << assoc->key;
  EXPECT_EQ(seen.size(), 500u);

  const auto* first = map.GetFirstAssoc();
  const std::string name = first->key;
  ASSERT_TRUE(map.RemoveKey(name.c_str()));
  EXPECT_EQ(map.GetNextAssoc(first), nullptr);

  // A copy is a map of its own.
  CMapStringToStreamOffset copy(map);
  EXPECT_EQ(copy.GetCount(), 499);
  map.RemoveAll();
  EXPECT_TRUE(map.IsEmpty());
  tag_aoStreamOffset found;
  EXPECT_TRUE(copy.Lookup("name7", found) || name == "name7");
}

}  // namespace
