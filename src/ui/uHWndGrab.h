#pragma once
// The size limits of a top-level window. The limits are in the units of the form's own
// size: twips of the whole window, frame included. 0 leaves that limit open.
//
// The limits stop the operator from sizing the window beyond them; they never move or
// size the window by themselves. A window that a program has placed outside its limits
// (as the closed layout does, before it fixes its size) keeps its size until then.
#include <cstdint>

class QWidget;

class uHWndGrab {
 public:
  explicit uHWndGrab(QWidget* pWindow) : m_pWindow(pWindow) {}

  int32_t MinHeight() const { return m_lMinHeight; }
  int32_t MinWidth() const { return m_lMinWidth; }
  int32_t MaxHeight() const { return m_lMaxHeight; }
  int32_t MaxWidth() const { return m_lMaxWidth; }
  bool LimitSize() const { return m_bLimitSize; }
  void SetMinHeight(int32_t lTwips);
  void SetMinWidth(int32_t lTwips);
  void SetMaxHeight(int32_t lTwips);
  void SetMaxWidth(int32_t lTwips);
  void SetLimitSize(bool bLimit);

  // Applies the limits to the window again (after it was placed from code).
  void Apply();
  // Lifts the limits from the window until the next Apply: for placing it from code.
  void Release();

 private:
  QWidget* m_pWindow;
  int32_t m_lMinHeight = 0;
  int32_t m_lMinWidth = 0;
  int32_t m_lMaxHeight = 0;
  int32_t m_lMaxWidth = 0;
  bool m_bLimitSize = false;
};
