#include "engine/WorkList.h"

#include <algorithm>
#include <stdexcept>

namespace {
bool SortsBefore(const WorkListRow& a, const WorkListRow& b) {
  return a.SubItem(WorkListRow::kEfficiency) > b.SubItem(WorkListRow::kEfficiency);
}
}  // namespace

void WorkList::Clear() {
  m_vRows.clear();
  m_iSelected = 0;
}

int WorkList::Add(WorkListRow oRow) {
  if (!m_bSorted) {
    m_vRows.push_back(std::move(oRow));
    return Count();
  }
  auto it = std::upper_bound(m_vRows.begin(), m_vRows.end(), oRow, SortsBefore);
  const int iRow = static_cast<int>(it - m_vRows.begin()) + 1;
  m_vRows.insert(it, std::move(oRow));
  if (m_iSelected >= iRow) ++m_iSelected;
  return iRow;
}

WorkListRow& WorkList::Row(int iRow) {
  if (iRow < 1 || iRow > Count()) throw std::out_of_range("work list row out of range");
  return m_vRows[static_cast<size_t>(iRow - 1)];
}

const WorkListRow& WorkList::Row(int iRow) const { return const_cast<WorkList*>(this)->Row(iRow); }

void WorkList::Remove(int iRow) {
  Row(iRow);  // range check
  m_vRows.erase(m_vRows.begin() + (iRow - 1));
  if (m_iSelected == iRow) {
    m_iSelected = 0;
  } else if (m_iSelected > iRow) {
    --m_iSelected;
  }
}

void WorkList::SortByEfficiencyDescending() {
  m_bSorted = true;
  Resort();
}

void WorkList::Resort() {
  if (!m_bSorted) return;
  const WorkListRow* pSelected = m_iSelected > 0 ? &m_vRows[static_cast<size_t>(m_iSelected - 1)] : nullptr;
  std::string sSelectedKey = pSelected ? pSelected->sKey : std::string();
  std::stable_sort(m_vRows.begin(), m_vRows.end(), SortsBefore);
  if (pSelected) {
    auto it =
        std::find_if(m_vRows.begin(), m_vRows.end(), [&](const WorkListRow& r) { return r.sKey == sSelectedKey; });
    m_iSelected = it == m_vRows.end() ? 0 : static_cast<int>(it - m_vRows.begin()) + 1;
  }
}

void WorkList::Select(int iRow) {
  if (iRow != 0) Row(iRow);
  m_iSelected = iRow;
}
