#pragma once
// Saves and restores a window's place, size and state under a registry key (below
// HKEY_LOCAL_MACHINE). The values under the key belong to this object: one string value
// "Placement" = "left,top,width,height,state", in twips of the whole window (frame
// included) and the window state (0 normal, 2 maximised). One value, so that a save is
// one write and a reader never sees half of one placement and half of another.
#include <QRect>

#include <optional>
#include <string>

class QWidget;

namespace WindowPlacement {

struct Placement {
  int iLeft = 0;
  int iTop = 0;
  int iWidth = 0;
  int iHeight = 0;
  bool bMaximised = false;
};

// Saves the window's normal place and size (a minimised or maximised window gives the
// place it has when restored) and whether it is maximised. False when the write failed.
bool Save(const std::string& sKey, const QWidget& oWindow);
// Restores what was saved: place, size and, if saved so, the maximised state. A place
// that lies on no screen any more is moved to the middle of the primary screen, keeping
// the size. False, and the window untouched, when nothing usable is saved.
bool Restore(const std::string& sKey, QWidget& oWindow);

// The stored placement, if there is a well-formed one.
std::optional<Placement> Read(const std::string& sKey);

}  // namespace WindowPlacement
