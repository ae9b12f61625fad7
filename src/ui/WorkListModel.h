#pragma once
// The rows of the engine's work list as a table for the list view lvwItems: five columns,
// "Log Name" (the row's text), then the sub-items LOGTIME, ACTIONTIME, ACTION and
// EFFICIENCY. The engine keeps the rows and their order; the model only reads them, and
// Refresh() is called whenever the engine says that the rows changed.
#include <QAbstractTableModel>

class WorkList;

class WorkListModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  explicit WorkListModel(const WorkList& oRows, QObject* pParent = nullptr);

  int rowCount(const QModelIndex& oParent = QModelIndex()) const override;
  int columnCount(const QModelIndex& oParent = QModelIndex()) const override;
  QVariant data(const QModelIndex& oIndex, int iRole = Qt::DisplayRole) const override;
  QVariant headerData(int iSection, Qt::Orientation eOrientation, int iRole = Qt::DisplayRole) const override;

  // The rows changed (added, removed, cleared, sorted): read them again.
  void Refresh();
  // The engine's selected row, from 1; 0 when none.
  int SelectedRow() const;

 private:
  const WorkList& m_oRows;
};
