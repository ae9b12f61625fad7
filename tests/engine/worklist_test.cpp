#include "engine/WorkList.h"

#include <gtest/gtest.h>

namespace {

WorkListRow MakeRow(const std::string& sKey, const std::string& sEfficiency) {
  WorkListRow oRow;
  oRow.sKey = sKey;
  oRow.sText = "Logger";
  oRow.SubItem(WorkListRow::kEfficiency) = sEfficiency;
  return oRow;
}

std::string Keys(const WorkList& oList) {
  std::string s;
  for (int i = 1; i <= oList.Count(); ++i) s += oList.Row(i).sKey + " ";
  return s;
}

TEST(WorkListTest, SortsByEfficiencyTextDescendingWithGainsBeforeLosses) {
  WorkList oList;
  // The last row's efficiency was never filled.
  for (auto [sKey, sEfficiency] : {std::pair{"std50", "P050"}, std::pair{"loss5", "N005"}, std::pair{"del", "P100"},
                                   std::pair{"loss40", "N040"}, std::pair{"std75", "P075"}, std::pair{"half", ""}})
    oList.Add(MakeRow(sKey, sEfficiency));
  EXPECT_EQ(Keys(oList), "std50 loss5 del loss40 std75 half ");  // unsorted until asked
  oList.SortByEfficiencyDescending();
  EXPECT_EQ(Keys(oList), "del std75 std50 loss40 loss5 half ");
}

TEST(WorkListTest, EqualTextsKeepTheirOrderAndLaterRowsGoToTheirPlace) {
  WorkList oList;
  oList.Add(MakeRow("a", "P037"));
  oList.Add(MakeRow("b", "P037"));
  oList.SortByEfficiencyDescending();
  EXPECT_EQ(oList.Add(MakeRow("c", "P037")), 3);
  EXPECT_EQ(oList.Add(MakeRow("d", "P100")), 1);
  EXPECT_EQ(Keys(oList), "d a b c ");
  oList.Clear();
  EXPECT_TRUE(oList.Sorted());  // the setting outlives the rows
  oList.Add(MakeRow("x", "P001"));
  oList.Add(MakeRow("y", "P002"));
  EXPECT_EQ(Keys(oList), "y x ");
}

TEST(WorkListTest, SelectionFollowsItsRow) {
  WorkList oList;
  oList.Add(MakeRow("a", "P010"));
  oList.Add(MakeRow("b", "P020"));
  oList.Add(MakeRow("c", "P030"));
  oList.Select(1);
  oList.SortByEfficiencyDescending();  // a moves to the end
  EXPECT_EQ(oList.Selected(), 3);
  oList.Remove(1);
  EXPECT_EQ(oList.Selected(), 2);
  oList.Remove(2);
  EXPECT_EQ(oList.Selected(), 0);
  EXPECT_THROW(oList.Row(2), std::out_of_range);
  EXPECT_THROW(oList.Remove(0), std::out_of_range);
  EXPECT_THROW(oList.Select(5), std::out_of_range);
}

TEST(WorkListTest, ResortAfterACellChanges) {
  WorkList oList;
  oList.Add(MakeRow("a", "P010"));
  oList.Add(MakeRow("b", "P020"));
  oList.SortByEfficiencyDescending();
  oList.Row(2).SubItem(WorkListRow::kEfficiency) = "P090";
  oList.Resort();
  EXPECT_EQ(Keys(oList), "a b ");
}

}  // namespace
