#include "app/frmfiledialog.h"

#include "errors/hunterr.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStorageInfo>
#include <QStyle>
#include <QVBoxLayout>

namespace app {

namespace {
constexpr int PathRole = Qt::UserRole + 1;
constexpr qint32 ERR_DEVICE_UNAVAILABLE = 68;

// A folder the list can open: it exists, is a directory and its entries can be read.
bool readableFolder(const QString &folder)
{
    const QFileInfo info(folder);
    if (!info.exists() || !info.isDir() || !info.isReadable())
        return false;
    QDir dir(folder);
    return dir.isReadable();
}
} // namespace

// ---------------------------------------------------------------------------------------------

DirList::DirList(QWidget *parent)
    : QListWidget(parent)
{
    setSelectionMode(QAbstractItemView::SingleSelection);
    setUniformItemSizes(true);
}

QString DirList::entryPath(const QListWidgetItem *item)
{
    return item ? item->data(PathRole).toString() : QString();
}

void DirList::setPath(const QString &folder)
{
    const QString absolute = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    if (!QFileInfo::exists(absolute))
        HuntERR::raise(HuntERR::ERR_PATH_NOT_FOUND, QStringLiteral("Path not found: ") + QDir::toNativeSeparators(absolute),
                       QStringLiteral("frmFileDialog"));
    if (!readableFolder(absolute))
        HuntERR::raise(HuntERR::ERR_PATH_FILE_ACCESS, QStringLiteral("Path/File access error: ") + QDir::toNativeSeparators(absolute),
                       QStringLiteral("frmFileDialog"));

    QDir dir(absolute);
    const QStringList subFolders = dir.entryList(QDir::AllDirs | QDir::NoDotAndDotDot | QDir::Hidden,
                                                 QDir::Name | QDir::IgnoreCase | QDir::LocaleAware);
    fill(absolute, subFolders);
    if (m_path != QDir::toNativeSeparators(absolute)) {
        m_path = QDir::toNativeSeparators(absolute);
        emit pathChanged(m_path);
    }
}

void DirList::fill(const QString &folder, const QStringList &subFolders)
{
    // The chain from the root down to the open folder, each one step further indented.
    QStringList chain;
    for (QDir up(folder);;) {
        chain.prepend(up.absolutePath());
        if (up.isRoot() || !up.cdUp())
            break;
    }

    const QIcon openIcon = style()->standardIcon(QStyle::SP_DirOpenIcon);
    const QIcon closedIcon = style()->standardIcon(QStyle::SP_DirClosedIcon);
    const QString indentUnit = QStringLiteral("   ");

    clear();
    QListWidgetItem *open = nullptr;
    for (int level = 0; level < chain.size(); ++level) {
        const QString &path = chain.at(level);
        QString name = QDir(path).dirName();
        if (level == 0 || name.isEmpty())
            name = QDir::toNativeSeparators(path);
        auto *item = new QListWidgetItem(openIcon, indentUnit.repeated(level) + name, this);
        item->setData(PathRole, path);
        item->setToolTip(QDir::toNativeSeparators(path));
        open = item;
    }
    const QString childIndent = indentUnit.repeated(int(chain.size()));
    for (const QString &name : subFolders) {
        auto *item = new QListWidgetItem(closedIcon, childIndent + name, this);
        const QString path = QDir(folder).absoluteFilePath(name);
        item->setData(PathRole, path);
        item->setToolTip(QDir::toNativeSeparators(path));
    }
    setCurrentItem(open);
    scrollToItem(open);
}

// ---------------------------------------------------------------------------------------------

frmFileDialog::frmFileDialog(QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("frmFileDialog"));
    setWindowTitle(QStringLiteral("Select Destination"));
    setModal(true);

    m_drive1 = new QComboBox(this);
    m_drive1->setObjectName(QStringLiteral("Drive1"));
    m_dir1 = new DirList(this);
    m_dir1->setObjectName(QStringLiteral("Dir1"));
    m_cmdClose = new QPushButton(QStringLiteral("&Close"), this);
    m_cmdClose->setObjectName(QStringLiteral("cmdClose"));
    m_cmdClose->setDefault(true);

    auto *driveLabel = new QLabel(QStringLiteral("Dri&ve:"), this);
    driveLabel->setBuddy(m_drive1);
    auto *dirLabel = new QLabel(QStringLiteral("&Folder:"), this);
    dirLabel->setBuddy(m_dir1);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(driveLabel);
    layout->addWidget(m_drive1);
    layout->addWidget(dirLabel);
    layout->addWidget(m_dir1, 1);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_cmdClose);
    layout->addLayout(buttons);
    resize(360, 400);

    {
        const QSignalBlocker quiet(m_drive1);
        for (const QString &root : volumeRoots())
            m_drive1->addItem(QDir::toNativeSeparators(root), root);
    }

    // The picker always starts in the process's current folder.
    const QString start = QDir::currentPath();
    HuntERR::handler(QStringLiteral("frmFileDialog.Form_Load"), [&] {
        selectDriveOf(start);
        m_dir1->setPath(start);
    });

    connect(m_drive1, &QComboBox::currentIndexChanged, this, [this] { Drive1_Change(); });
    connect(m_dir1, &QListWidget::itemActivated, this, [this](QListWidgetItem *item) { Dir1_Open(item); });
    connect(m_cmdClose, &QPushButton::clicked, this, &frmFileDialog::cmdClose_Click);
}

QStringList frmFileDialog::volumeRoots()
{
    QStringList roots;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes()) {
        if (!volume.isValid())
            continue;
        const QString root = volume.rootPath();
        if (!root.isEmpty() && !roots.contains(root))
            roots << root;
    }
    const QString home = QStorageInfo(QDir::currentPath()).rootPath();
    if (!home.isEmpty() && !roots.contains(home))
        roots << home;
    roots.sort(Qt::CaseInsensitive);
    return roots;
}

void frmFileDialog::selectDriveOf(const QString &folder)
{
    const QString root = QStorageInfo(folder).rootPath();
    int at = m_drive1->findData(root);
    if (at < 0 && !root.isEmpty()) {
        m_drive1->addItem(QDir::toNativeSeparators(root), root);
        at = m_drive1->count() - 1;
    }
    const QSignalBlocker quiet(m_drive1);
    m_drive1->setCurrentIndex(at);
}

bool frmFileDialog::Drive1_Change()
{
    return HuntERR::handler(QStringLiteral("frmFileDialog.Drive1_Change"), [this] {
        QString root = m_drive1->currentData().toString();
        if (root.isEmpty())
            root = m_drive1->currentText();
        if (!readableFolder(root))
            HuntERR::raise(ERR_DEVICE_UNAVAILABLE,
                           QStringLiteral("Device unavailable: ") + QDir::toNativeSeparators(root),
                           QStringLiteral("frmFileDialog"));
        m_dir1->setPath(root);
    });
}

bool frmFileDialog::Dir1_Open(QListWidgetItem *item)
{
    if (!item)
        return true;
    return HuntERR::handler(QStringLiteral("frmFileDialog.Dir1_Change"),
                            [&] { m_dir1->setPath(DirList::entryPath(item)); });
}

void frmFileDialog::cmdClose_Click()
{
    m_chosen = m_dir1->path();
    accept();
}

} // namespace app
