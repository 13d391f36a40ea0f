#pragma once
// The parts both error windows are made of: a strip of picture buttons over a panel with one
// read-only text box. The pictures are drawn rather than shipped so they stay crisp at any scale
// and need no resource files.

#include <QIcon>
#include <QKeySequence>
#include <QString>

class QBoxLayout;
class QDialog;
class QFrame;
class QHBoxLayout;
class QPlainTextEdit;
class QLabel;
class QToolButton;
class QWidget;

namespace app {

namespace ErrorWindows {

QIcon copyPicture();  // two sheets of paper, one over the other
QIcon infoPicture();  // an "i" in a blue disc
QIcon closePicture(); // a white cross in a red disc

// A 3-D panel as the windows use for their button row and their content.
QFrame *panel(const QString &objectName, QWidget *parent);

// A picture button with its caption beneath, added as one column to row.
QToolButton *addPictureButton(QBoxLayout *row, QWidget *parent, const QString &buttonName, const QIcon &icon,
                              const QString &toolTip, const QKeySequence &shortcut, const QString &labelName,
                              const QString &labelText);

// The window's two panels: the button strip (buttons are added to its row, then a stretch) and
// the content with its fixed-pitch, read-only text box.
struct Frame {
    QHBoxLayout *buttons;
    QPlainTextEdit *text;
};
Frame buildFrame(QDialog *dialog, const QString &textName, int buttonSpacing = -1);

} // namespace ErrorWindows

} // namespace app
