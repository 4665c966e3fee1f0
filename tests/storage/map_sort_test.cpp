// The name map on its own: what its sorted view shows while entries come,
// change and go.
#include <gtest/gtest.h>

#include <map>
#include <random>
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
  EXPECT_EQ(map.GetNextAssoc(b), nullptr);
  const CMapStringToStreamOffset::Assoc elsewhere{"a", At(1)};
  EXPECT_FALSE(map.Contains(&elsewhere));
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

// Removal closes gaps in the probe runs by moving entries back; a mistake
// there loses entries or finds stale ones only after the right mix of names,
// so a long random run is compared with a plain ordered map.
TEST(NameMap, ARandomRunOfChangesAgreesWithAPlainMap) {
  CMapStringToStreamOffset map;
  std::map<std::string, int64_t> expected;
  std::mt19937 random(7);
  for (int step = 0; step < 20000; ++step) {
    const std::string name = "n" + std::to_string(random() % 300);
    if (random() % 3 == 0) {
      EXPECT_EQ(map.RemoveKey(name.c_str()), expected.erase(name) == 1);
    } else {
      map.SetAt(name.c_str(), At(step + 1));
      expected[name] = step + 1;
    }
    if (step % 997 == 0) map.Sort();
  }
  ASSERT_EQ(map.GetCount(), static_cast<int>(expected.size()));
  for (const auto& [name, offset] : expected) {
    tag_aoStreamOffset found;
    ASSERT_TRUE(map.Lookup(name.c_str(), found)) << name;
    EXPECT_EQ(found.recordOffset, offset);
  }
  std::set<std::string> walked;
  for (const auto* assoc = map.GetFirstAssoc(); assoc != nullptr; assoc = map.GetNextAssoc(assoc))
    EXPECT_TRUE(walked.insert(assoc->key).second) << assoc->key;
  EXPECT_EQ(walked.size(), expected.size());
}

}  // namespace
