#include "ui/TabFrame.h"

#include <QStyleOptionTabWidgetFrame>
#include <QStylePainter>
#include <QTabBar>

TabFrame::TabFrame(const QString& sTabCaption, QWidget* pParent) : QWidget(pParent), m_pTabBar(new QTabBar(this)) {
  m_pTabBar->setDrawBase(false);
  m_pTabBar->setExpanding(false);
  m_pTabBar->addTab(sTabCaption);
  m_pTabBar->setFocusPolicy(Qt::NoFocus);
  m_pTabBar->move(0, 0);
  m_pTabBar->resize(m_pTabBar->sizeHint());
  m_pTabBar->lower();
}

QString TabFrame::TabCaption() const { return m_pTabBar->tabText(0); }

void TabFrame::resizeEvent(QResizeEvent* /*pEvent*/) {
  m_pTabBar->resize(std::min(m_pTabBar->sizeHint().width(), width()), m_pTabBar->sizeHint().height());
}

void TabFrame::paintEvent(QPaintEvent* /*pEvent*/) {
  QStylePainter oPainter(this);
  QStyleOptionTabWidgetFrame oOption;
  oOption.initFrom(this);
  oOption.shape = QTabBar::RoundedNorth;
  oOption.tabBarSize = m_pTabBar->size();
  oOption.tabBarRect = m_pTabBar->geometry();
  const int iOverlap = style()->pixelMetric(QStyle::PM_TabBarBaseOverlap, nullptr, this);
  const int iTop = std::max(0, m_pTabBar->height() - iOverlap);
  oOption.rect = QRect(0, iTop, width(), height() - iTop);
  oOption.lineWidth = style()->pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, this);
  oPainter.drawPrimitive(QStyle::PE_FrameTabWidget, oOption);
}
