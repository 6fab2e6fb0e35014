#pragma once

class QAbstractItemView;
class QKeyEvent;
class QModelIndex;
class QMouseEvent;

// The Linux desktops' conventions for a row's context menu, the same in the table and in the
// grouped tree.
namespace RowMenuInput {

// Shift+F10 or the Menu key.
bool isMenuKey(const QKeyEvent& event);

// A right click selects the row under it unless that row is already selected, so a command
// from the menu acts on the row the user sees highlighted. True when the press was a right
// click, which the view then takes no further.
bool takeRightClick(QAbstractItemView& view, const QModelIndex& index, QMouseEvent& event);

} // namespace RowMenuInput
