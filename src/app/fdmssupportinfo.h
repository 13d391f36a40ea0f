#pragma once
// The support-information window, opened from the error window.

#include <QDialog>

class QPlainTextEdit;
class QToolButton;

namespace app {

class FDmsSupportInfo : public QDialog {
    Q_OBJECT

public:
    explicit FDmsSupportInfo(QWidget *parent = nullptr);

    QToolButton *cmdCancel() const { return m_cmdCancel; }
    QPlainTextEdit *txtMessage() const { return m_txtMessage; }

private:
    QToolButton *m_cmdCancel = nullptr;
    QPlainTextEdit *m_txtMessage = nullptr;
};

} // namespace app
