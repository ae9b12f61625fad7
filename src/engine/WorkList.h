#pragma once
// The work list of the processor (the list view lvwItems): one row per hour with an action
// due, each row owning its work item. The engine owns the list; a window shows it
// (IProcessorView::RowsChanged tells it to read the rows again).
//
// Rows are numbered from 1, as in the list view. Once sorted, the list stays sorted: a
// row added later is placed by its sort text among the others (after its equals), and
// a row whose cells change is put in place by Resort().
#include <array>
#include <memory>
#include <string>
#include <vector>

class CLogProcessEntry;

struct WorkListRow {
  // The cells after the first. Their keys, in order.
  enum SubItem { kLogTime = 1, kActionTime, kAction, kEfficiency, kLogTimeSerial, kSubItemCount = kLogTimeSerial };

  std::string sKey;                                   // the entry's Reference
  std::string sText;                                  // the first cell: the logger's Name
  std::array<std::string, kSubItemCount> asSubItems;  // SubItem(1) is asSubItems[0]
  std::shared_ptr<CLogProcessEntry> pTag;             // the row owns its entry; may be null

  std::string& SubItem(int iIndex) { return asSubItems.at(static_cast<size_t>(iIndex - 1)); }
  const std::string& SubItem(int iIndex) const { return asSubItems.at(static_cast<size_t>(iIndex - 1)); }
};

class WorkList {
 public:
  // The keys and headers of the five columns; the fifth ("EFFICIENCY") has width 0.
  static constexpr std::array<const char*, 5> kColumnKeys = {"LOGNAME", "LOGTIME", "ACTIONTIME", "ACTION",
                                                             "EFFICIENCY"};
  static constexpr std::array<const char*, 5> kColumnHeaders = {"Log Name", "Log Time", "Action Time", "Action",
                                                                "Efficiency"};

  // Removes every row and the selection. The sort setting stays, as on the list view.
  void Clear();
  int Count() const { return static_cast<int>(m_vRows.size()); }
  bool Empty() const { return m_vRows.empty(); }

  // Adds a row (at the end, or in its sorted place when the list is sorted) and returns
  // its number.
  int Add(WorkListRow oRow);
  // Row iRow, 1 to Count(). Throws std::out_of_range outside.
  WorkListRow& Row(int iRow);
  const WorkListRow& Row(int iRow) const;
  // Removes row iRow; the rows behind move up. The selection follows its row, or goes.
  void Remove(int iRow);

  // Sorts by the text of the "EFFICIENCY" cell, descending, and keeps the list sorted
  // from now on. Rows with the same text keep their order.
  void SortByEfficiencyDescending();
  bool Sorted() const { return m_bSorted; }
  // Puts the rows in order again after a cell changed (nothing when not sorted).
  void Resort();

  // The selected row, 0 for none.
  int Selected() const { return m_iSelected; }
  void Select(int iRow);

 private:
  std::vector<WorkListRow> m_vRows;
  bool m_bSorted = false;
  int m_iSelected = 0;
};
