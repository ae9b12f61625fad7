#include "ui/WorkListModel.h"

#include "engine/WorkList.h"

WorkListModel::WorkListModel(const WorkList& oRows, QObject* pParent) : QAbstractTableModel(pParent), m_oRows(oRows) {}

int WorkListModel::rowCount(const QModelIndex& oParent) const { return oParent.isValid() ? 0 : m_oRows.Count(); }

int WorkListModel::columnCount(const QModelIndex& oParent) const {
  return oParent.isValid() ? 0 : static_cast<int>(WorkList::kColumnHeaders.size());
}

QVariant WorkListModel::data(const QModelIndex& oIndex, int iRole) const {
  if (iRole != Qt::DisplayRole || !oIndex.isValid()) return {};
  // The engine may have changed the rows a moment before it says so: a row that has
  // gone reads as empty until the refresh.
  const int iRow = oIndex.row() + 1;
  if (iRow > m_oRows.Count()) return {};
  const WorkListRow& oRow = m_oRows.Row(iRow);
  const std::string& sCell = oIndex.column() == 0 ? oRow.sText : oRow.SubItem(oIndex.column());
  return QString::fromStdString(sCell);
}

QVariant WorkListModel::headerData(int iSection, Qt::Orientation eOrientation, int iRole) const {
  if (eOrientation != Qt::Horizontal || iRole != Qt::DisplayRole) return {};
  if (iSection < 0 || iSection >= static_cast<int>(WorkList::kColumnHeaders.size())) return {};
  return QString::fromUtf8(WorkList::kColumnHeaders[static_cast<size_t>(iSection)]);
}

int WorkListModel::SelectedRow() const { return m_oRows.Selected(); }

void WorkListModel::Refresh() {
  beginResetModel();
  endResetModel();
}
