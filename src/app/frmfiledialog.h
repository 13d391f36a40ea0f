#pragma once
// The destination picker: a drive list and a directory list in the manner of the classic
// drive/directory list pair. The directory list shows the open folder's ancestors (each can be
// reopened) and, below the open folder, its sub-folders (double-click or Enter opens one).
// "&Close" takes the open folder, not a merely highlighted entry.

#include <QDialog>
#include <QListWidget>
#include <QString>

#include <optional>

class QComboBox;
class QPushButton;

namespace app {

// Dir1: the directory list.
class DirList : public QListWidget {
    Q_OBJECT
public:
    explicit DirList(QWidget *parent = nullptr);

    // The open folder, in the platform's notation.
    QString path() const { return m_path; }
    // Opens a folder; raises a trail error (the list is left as it was) when it cannot be read.
    void setPath(const QString &folder);
    // The folder an entry stands for.
    static QString entryPath(const QListWidgetItem *item);

signals:
    void pathChanged(const QString &path);

private:
    void fill(const QString &folder, const QStringList &subFolders);
    QString m_path;
};

class frmFileDialog : public QDialog {
    Q_OBJECT
public:
    explicit frmFileDialog(QWidget *parent = nullptr);

    // What "&Close" stored; nothing while the picker was not closed that way.
    std::optional<QString> chosenPath() const { return m_chosen; }

    QComboBox *drives() const { return m_drive1; }
    DirList *directories() const { return m_dir1; }
    QPushButton *closeButton() const { return m_cmdClose; }

    // Event handlers; they return false when the error trail took over.
    bool Drive1_Change();
    bool Dir1_Open(QListWidgetItem *item);
    void cmdClose_Click();

    // Root paths of the machine's volumes as the drive list offers them.
    static QStringList volumeRoots();

private:
    void selectDriveOf(const QString &folder);

    QComboBox *m_drive1 = nullptr;
    DirList *m_dir1 = nullptr;
    QPushButton *m_cmdClose = nullptr;
    std::optional<QString> m_chosen;
};

} // namespace app
