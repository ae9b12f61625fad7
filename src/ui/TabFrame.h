#pragma once
// A tab frame with a single tab: the tab on top and a panel below it. The controls it
// carries are its own children, placed from its top-left corner (the tab strip included),
// as the form designs place them.
#include <QString>
#include <QWidget>

class QTabBar;

class TabFrame : public QWidget {
  Q_OBJECT

 public:
  TabFrame(const QString& sTabCaption, QWidget* pParent = nullptr);

  QString TabCaption() const;

 protected:
  void paintEvent(QPaintEvent* pEvent) override;
  void resizeEvent(QResizeEvent* pEvent) override;

 private:
  QTabBar* m_pTabBar;
};
