#include "tree/treeprocs.h"

#include "errors/hunterr.h"
#include "names/filenames.h"
#include "repository/connectionstring.h"
#include "repository/statements.h"

#include <cmath>

namespace tree {

using names::RemoveSpChr;
using names::pathSeparator;
using names::trimBlanks;

namespace {

const QString kModule = QStringLiteral("FrmSendtofolder.");
const QString kKeyPrefix = QStringLiteral("Fold");
const QString kProcessing = QStringLiteral(" Processing... Please Wait");

// What the tree control raises when a procedure reaches through a node that is not there
// (the parent of a top node, the first child of a leaf, the selection of an empty tree).
constexpr qint32 ERR_OBJECT_NOT_SET = 91;

[[noreturn]] void raiseNotSet()
{
    HuntERR::raise(ERR_OBJECT_NOT_SET, QStringLiteral("Object variable or With block variable not set"));
}

template <class T>
T *required(T *object)
{
    if (!object)
        raiseNotSet();
    return object;
}

// A record id as decimal text, whatever numeric type the driver hands back.
QString idText(const QVariant &value)
{
    if (value.isNull())
        return {};
    bool ok = false;
    const qlonglong whole = value.toLongLong(&ok);
    if (ok)
        return QString::number(whole);
    const double d = value.toDouble(&ok);
    if (ok && std::isfinite(d) && d == std::floor(d))
        return QString::number(qlonglong(d));
    return value.toString().trimmed();
}

// The icon id of a row, or 0 when it is missing or not a number (no rule then applies).
int iconId(const repo::RecordSet &rs)
{
    if (rs.isNull(QStringLiteral("icon_rec_id")))
        return 0;
    bool ok = false;
    const double icon = rs.value(QStringLiteral("icon_rec_id")).toDouble(&ok);
    if (!ok || icon != std::floor(icon) || icon < 1 || icon > 11)
        return 0;
    return int(icon);
}

// Image of a child row; `image` keeps the previous row's value when no rule applies.
void chooseChildImage(int &image, const QString &folderType, int icon, bool archiveOrigin)
{
    if (folderType == QLatin1String("SITE")) {
        image = archiveOrigin ? TreeImage::ArchiveSite : TreeImage::Site;
    } else if (folderType == QLatin1String("CABINET")) {
        image = archiveOrigin ? TreeImage::ArchiveCabinet : TreeImage::Cabinet;
    } else if (folderType == QLatin1String("ADMIN")) {
        image = TreeImage::Admin;
    } else if (folderType == QLatin1String("RECYCLE")) {
        image = TreeImage::Recycle;
    } else if (folderType == QLatin1String("FOLDER") && icon >= 1) {
        if (!archiveOrigin)
            image = icon + 3;
        else if (icon == 1)
            image = TreeImage::ArchiveFolder1;
        else if (icon <= 3)
            image = TreeImage::ArchiveFolder2and3; // icons 2 and 3 share one archive picture
        else
            image = icon + 16;
    }
}


FolderTree::Node *nodeAtIndex(FolderTree &tree, int index)
{
    return tree.node(index);
}

// A node's descendants as the tree's procedures have always found them: not by walking the
// subtree but by full path, every node from its first child on whose path contains the node's
// path, later look-alike siblings included. Highest index first.
std::vector<FolderTree::Node *> descendantsByPath(FolderTree &tree, FolderTree::Node *start)
{
    const int first = required(tree.firstChild(start))->index;
    const QString startPath = tree.fullPath(start);
    std::vector<FolderTree::Node *> found;
    for (int i = tree.count(); i >= first; --i) {
        FolderTree::Node *n = tree.node(i);
        if (tree.fullPath(n).contains(startPath, Qt::CaseSensitive))
            found.push_back(n);
    }
    return found;
}

} // namespace

TreeProcs::TreeProcs(SessionState &signIn, FolderTree &tree)
    : m_signIn(signIn)
    , m_tree(tree)
{
}

// --- Tree building ---------------------------------------------------------------------------

void TreeProcs::Load_Trees()
{
    HuntERR::inner(kModule + QStringLiteral("Load_Trees"), [&] {
        loadSitesFolders1();
    });
}

void TreeProcs::loadSitesFolders1()
{
    HuntERR::inner(kModule + QStringLiteral("loadSitesFolders1"), [&] {
        WindowPort &form = m_signIn.form();
        // An archive's folders live in its paired live database; only the bytes are archived.
        const QString catalogue = m_signIn.blnArchive ? m_signIn.strLiveDb
                                                      : correctQuotes(trimBlanks(form.databaseText()));
        // The helper trims and quotes user, server and password itself.
        const QString text = databaseConnectionString(form.userText(), catalogue, trimBlanks(form.serverText()),
                                                      trimBlanks(form.passwordText()));

        repo::Connection &cn = m_signIn.cnDb();
        if (cn.state() == repo::adStateOpen)
            cn.close();
        cn.cursorLocation = repo::adUseClient;
        cn.connectionString = text;
        cn.open();

        m_tree.clear();
        loadSitesAndCabinets1(m_tree, 0);

        if (m_tree.count() >= 1)
            m_tree.setSelected(m_tree.node(1));
    });
}

void TreeProcs::loadSitesAndCabinets1(FolderTree &sstTreeView, qint64 lngStartFolderID)
{
    const QString source = kModule + QStringLiteral("loadSitesAndCabinets1(sstTreeView,lngStartFolderID)");
    for (;;) {
        try {
            const QString sql = repo::statements::firstLevel(QString::number(lngStartFolderID));
            repo::RecordSet rs = m_signIn.cnDb().execute(sql);
            int image = 0;
            while (!rs.eof()) {
                const QString folderType = rs.text(QStringLiteral("Folder_Type"));
                if (folderType == QLatin1String("ROOT")) {
                    const QString text = rs.text(QStringLiteral("Folder_Name")) + QStringLiteral(" [")
                                         + m_signIn.strSelectedDb + QStringLiteral(" <")
                                         + m_signIn.form().dbTypeCaption() + QStringLiteral("> ]");
                    FolderTree::Node *root = sstTreeView.add(
                        QString(), kKeyPrefix + idText(rs.value(QStringLiteral("Rec_Id"))), text, TreeImage::Root);
                    // A top node is always visible; nothing above it needs expanding. Its text
                    // carries the database; its name as stored is kept for whoever asks.
                    m_rootKey = root->key;
                    m_rootName = rs.text(QStringLiteral("Folder_Name"));
                    return;
                }
                if (folderType == QLatin1String("SITE")) {
                    image = TreeImage::Site;
                } else if (folderType == QLatin1String("CABINET")) {
                    image = TreeImage::Cabinet;
                } else if (folderType == QLatin1String("ADMIN")) {
                    image = TreeImage::Admin;
                } else {
                    const int icon = iconId(rs);
                    if (icon >= 1)
                        image = icon + 3;
                }
                if (folderType != QLatin1String("FOLDER")) {
                    FolderTree::Node *added =
                        sstTreeView.add(kKeyPrefix + idText(rs.value(QStringLiteral("Folder_Parent"))),
                                        kKeyPrefix + idText(rs.value(QStringLiteral("Rec_ID"))),
                                        rs.text(QStringLiteral("Folder_Name")), image);
                    sstTreeView.setTag(added, rs.text(QStringLiteral("FOLDER_NAME")));
                }
                rs.moveNext();
            }
            return;
        } catch (...) {
            HuntERR::setCurrent(std::current_exception());
            HuntERR::ErrPreserve();
            const qint32 number = HuntERR::preserved().number;
            // A database without the repository tables: the user picked the wrong database,
            // which is a message and a way back, not a fault.
            if (number == repo::ERR_NO_OBJECT || number == repo::ERR_COMMAND) {
                m_signIn.form().message(QStringLiteral("Invalid database selected"));
                m_signIn.blnInvalidDb = true;
                m_signIn.form().showSignInScreen();
                HuntERR::clearCurrent();
                HuntERR::clearPreserved();
                return;
            }
            if (HuntERR::ErrMustStop())
                continue;
            HuntERR::ErrorIn(source, HuntERR::FlagsInner);
            return;
        }
    }
}

// --- Child loading ---------------------------------------------------------------------------

namespace {

// The loaders' common start: busy feedback, then the node's previous children go, so a reload
// never shows a child twice.
void beginReload(WindowPort &form, FolderTree &tree, const QString &parentnode)
{
    form.setBusy(true);
    form.setStatus(kProcessing);
    if (tree.count() >= 1 && folderIdOfKey(parentnode) > 0)
        tree.removeChildren(tree.byKey(parentnode));
}

void endReload(WindowPort &form)
{
    form.setStatus(QString());
    form.setBusy(false);
}

} // namespace

void TreeProcs::loadChildren(const QString &parentnode)
{
    HuntERR::inner(kModule + QStringLiteral("loadChildren(parentnode)"), [&] {
        WindowPort &form = m_signIn.form();
        beginReload(form, m_tree, parentnode);

        QString id = parentnode;
        id.remove(kKeyPrefix);
        const QString sql = repo::statements::liveChildren(id);
        repo::RecordSet rs = m_signIn.cnDb().execute(sql);

        int image = 0;
        while (!rs.eof()) {
            chooseChildImage(image, rs.text(QStringLiteral("Folder_Type")), iconId(rs), false);
            const QString name = rs.text(QStringLiteral("FOLDER_NAME"));
            FolderTree::Node *added =
                m_tree.add(parentnode, kKeyPrefix + idText(rs.value(QStringLiteral("REC_ID"))), name, image);
            m_tree.setTag(added, name);
            rs.moveNext();
        }
        endReload(form);
    });
}

void TreeProcs::loadChildrenArchive(const QString &parentnode)
{
    HuntERR::inner(kModule + QStringLiteral("loadChildrenArchive(parentnode)"), [&] {
        WindowPort &form = m_signIn.form();
        beginReload(form, m_tree, parentnode);

        const QString id = QString::number(folderIdOfKey(parentnode));
        const QString sql = repo::statements::liveAndArchivedChildren(id);
        repo::Connection &cn = m_signIn.cnDb();
        repo::RecordSet rs = cn.execute(sql);

        int image = 0;
        while (!rs.eof()) {
            const QString recId = idText(rs.value(QStringLiteral("rec_id")));
            bool shown = true;
            if (m_signIn.blnArchive) {
                // Only folders that lead to archived documents are worth showing in an archive.
                shown = cn.execute(repo::statements::archivedBelowProbe(recId, m_signIn.strSelectedDb)).recordCount() >= 1;
            }
            if (shown) {
                const bool archiveOrigin =
                    rs.text(QStringLiteral("FOLDER")).toUpper() == QLatin1String("ARCHIVE");
                chooseChildImage(image, rs.text(QStringLiteral("Folder_Type")), iconId(rs), archiveOrigin);
                const QString name = rs.text(QStringLiteral("FOLDER_NAME"));
                FolderTree::Node *added = m_tree.add(parentnode, kKeyPrefix + recId, name, image);
                m_tree.setTag(added, name);
                if (archiveOrigin)
                    m_archiveListKeys.insert(added->key);
            }
            rs.moveNext();
        }
        endReload(form);
    });
}

// --- Tick propagation and node paths -----------------------------------------------------------

void TreeProcs::SelectAllChild(int nodeIdx)
{
    HuntERR::inner(kModule + QStringLiteral("SelectAllChild(nodeIdx)"), [&] { setAllChildren(nodeIdx, true); });
}

void TreeProcs::DeSelectAllChild(int nodeIdx)
{
    HuntERR::inner(kModule + QStringLiteral("DeSelectAllChild(nodeIdx)"), [&] { setAllChildren(nodeIdx, false); });
}

void TreeProcs::setAllChildren(int nodeIdx, bool ticked)
{
    if (required(m_tree.selected())->children.empty())
        return;
    m_tree.setCheckedMany(descendantsByPath(m_tree, nodeAtIndex(m_tree, nodeIdx)), ticked);
}

// --- Tree events -------------------------------------------------------------------------------

bool TreeProcs::tvDefaultRoot_NodeClick(FolderTree::Node *node)
{
    return HuntERR::handler(kModule + QStringLiteral("tvDefaultRoot_NodeClick(Node)"), [&] {
        if (node) {
            m_tree.setSelected(node);
            m_tree.setDropHighlight(node);
        }
        FolderTree::Node *clicked = required(node);
        if (!m_signIn.blnArchive)
            loadChildren(clicked->key);
        else
            loadChildrenArchive(clicked->key);
        m_tree.setExpanded(clicked, true);
        // Freshly loaded children take over the clicked node's tick.
        if (clicked->checked)
            SelectAllChild(clicked->index);
        else
            DeSelectAllChild(clicked->index);
    });
}

bool TreeProcs::tvDefaultRoot_NodeCheck(FolderTree::Node *node)
{
    return HuntERR::handler(kModule + QStringLiteral("tvDefaultRoot_NodeCheck(Node)"), [&] {
        // The repository root is never exported as such: its tick does not stick.
        if (folderIdOfKey(required(node)->key) == 1) {
            m_tree.setChecked(node, false);
            m_tree.setSelected(node);
            return;
        }
        m_tree.setSelected(node);
        m_tree.setDropHighlight(node);
        // Under a ticked parent a child stays ticked: an untick is undone at once.
        if (required(node->parent)->checked)
            m_tree.setChecked(node, false);
        if (node->parent->checked)
            m_tree.setChecked(node, true);
        dblCheckedNodeIdx = node->index;
    });
}

bool TreeProcs::tvDefaultRoot_Click()
{
    return HuntERR::handler(kModule + QStringLiteral("tvDefaultRoot_Click"), [&] {
        FolderTree::Node *selected = required(m_tree.selected());
        if (folderIdOfKey(selected->key) == 1)
            m_tree.setChecked(selected, false);
        if (dblCheckedNodeIdx > 0) {
            FolderTree::Node *changed = nodeAtIndex(m_tree, dblCheckedNodeIdx);
            if (changed->checked)
                SelectAllChild(changed->index);
            else
                DeSelectAllChild(changed->index);
        }
    });
}

} // namespace tree
