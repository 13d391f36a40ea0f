// The folder tree: the model on its own, then the tree procedures signed in to the demo
// repository the way the window does it (form boxes, database choice, "&OK", clicks and ticks).

#include "errors/hunterr.h"
#include "export/exporter.h"
#include "repository/signin.h"
#include "testsupport.h"
#include "tree/foldertree.h"
#include "tree/treeprocs.h"

#include <QAbstractItemModelTester>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QStringList g_shown; // every error window the trail would have opened

// Keeps what the procedures told the window about progress.
class RecordingPort : public PlainFormPort {
public:
    QStringList statusHistory;
    QList<bool> busyHistory;
    void setStatus(const QString &text) override
    {
        PlainFormPort::setStatus(text);
        statusHistory << text;
    }
    void setBusy(bool busy) override { busyHistory << busy; }
};

struct Session {
    RecordingPort port;
    SignIn signIn{port};
    FolderTree tree;
    TreeProcs procs{signIn, tree};

    // Server box, user box, database choice, then "&OK": validation and the tree build.
    bool signInTo(const QString &server, const QString &database)
    {
        port.server = server;
        port.user = QStringLiteral("demo");
        port.password.clear();
        if (!HuntERR::handler(QStringLiteral("FrmSendtofolder.cboDBName_GotFocus"),
                              [&] { signIn.refreshDatabaseList(); }))
            return false;
        port.database = database;
        if (!HuntERR::handler(QStringLiteral("FrmSendtofolder.cboDBName_Click"), [&] { signIn.cboDBName_Click(); }))
            return false;
        bool proceed = false;
        const bool ok = HuntERR::handler(QStringLiteral("FrmSendtofolder.cmdlogin_Click"), [&] {
            QString focus;
            proceed = signIn.validateAndPrepare(&focus);
            if (proceed)
                procs.Load_Trees();
        });
        return ok && proceed;
    }

    FolderTree::Node *node(int id) const { return tree.find(QStringLiteral("Fold%1").arg(id)); }
    bool click(int id) { return procs.tvDefaultRoot_NodeClick(node(id)); }
    // The box changes in the view; the tree then reports the check and the click.
    bool tick(int id, bool on)
    {
        FolderTree::Node *n = node(id);
        tree.setChecked(n, on);
        return procs.tvDefaultRoot_NodeCheck(n) && procs.tvDefaultRoot_Click();
    }

    QList<int> childIds(int id) const
    {
        QList<int> ids;
        for (const FolderTree::Node *c : node(id)->children)
            ids << int(folderIdOfKey(c->key));
        return ids;
    }
    QList<int> childImages(int id) const
    {
        QList<int> images;
        for (const FolderTree::Node *c : node(id)->children)
            images << c->image;
        return images;
    }
    QList<int> tickedIds() const
    {
        QList<int> ids;
        for (int i = 1; i <= tree.count(); ++i)
            if (tree.node(i)->checked)
                ids << int(folderIdOfKey(tree.node(i)->key));
        return ids;
    }
};

// A tree built by hand for the tick procedures, which never touch the database.
FolderTree::Node *addNode(FolderTree &tree, const QString &parentKey, int id, const QString &text)
{
    FolderTree::Node *n = tree.add(parentKey, QStringLiteral("Fold%1").arg(id), text, 4);
    tree.setTag(n, text);
    return n;
}

QStringList keysInOrder(const FolderTree &tree)
{
    QStringList keys;
    for (int i = 1; i <= tree.count(); ++i)
        keys << tree.node(i)->key;
    return keys;
}

qint32 errorNumberOf(const std::function<void()> &body)
{
    try {
        body();
    } catch (const HuntERR::Error &e) {
        return e.number();
    }
    return 0;
}

} // namespace

class TestTree : public QObject {
    Q_OBJECT

    QTemporaryDir m_tmp;
    QString m_server;
    QString m_trace;

    QStringList traced() const
    {
        QFile f(m_trace);
        if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
            return {};
        return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    void clearTrace() const { QFile::remove(m_trace); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        QString error;
        m_server = writeDemo(m_tmp.path(), &error);
        QVERIFY2(!m_server.isEmpty(), qPrintable(error));
        m_trace = m_tmp.filePath(QStringLiteral("statements.sql"));
        repo::setTraceFile(m_trace);
        HuntERR::setShower([](const QString &message) { g_shown << message; });
    }

    void init()
    {
        HuntERR::reset();
        g_shown.clear();
        clearTrace();
    }

    void modelIndicesKeysAndPaths()
    {
        FolderTree tree;
        QAbstractItemModelTester tester(&tree, QAbstractItemModelTester::FailureReportingMode::QtTest);
        addNode(tree, {}, 1, QStringLiteral("Root"));
        addNode(tree, QStringLiteral("Fold1"), 2, QStringLiteral("A"));
        addNode(tree, QStringLiteral("Fold2"), 3, QStringLiteral("A1"));
        addNode(tree, QStringLiteral("Fold1"), 4, QStringLiteral("B"));
        addNode(tree, QStringLiteral("Fold2"), 5, QStringLiteral("A2"));
        QCOMPARE(tree.count(), 5);
        QCOMPARE(keysInOrder(tree), QStringList({"Fold1", "Fold2", "Fold3", "Fold4", "Fold5"}));
        for (int i = 1; i <= 5; ++i)
            QCOMPARE(tree.node(i)->index, i);
        QCOMPARE(tree.fullPath(tree.node(5)), QStringLiteral("Root\\A\\A2"));
        QCOMPARE(tree.fullPath(tree.node(1)), QStringLiteral("Root"));
        QCOMPARE(tree.rowCount(tree.indexOf(tree.node(2))), 2);
        QCOMPARE(tree.indexOf(tree.node(5)).row(), 1);

        QCOMPARE(errorNumberOf([&] { tree.add(QStringLiteral("Fold1"), QStringLiteral("Fold3"), "x", 4); }),
                 HuntERR::ERR_KEY_NOT_UNIQUE);
        QCOMPARE(errorNumberOf([&] { tree.add(QStringLiteral("Fold99"), QStringLiteral("Fold6"), "x", 4); }),
                 HuntERR::ERR_ELEMENT_NOT_FOUND);
        QCOMPARE(errorNumberOf([&] { tree.node(0); }), HuntERR::ERR_INDEX_OUT_OF_BOUNDS);
        QCOMPARE(errorNumberOf([&] { tree.node(6); }), HuntERR::ERR_INDEX_OUT_OF_BOUNDS);
        QCOMPARE(tree.count(), 5); // failed adds leave nothing behind

        // Removing a subtree closes the gap; later nodes move up and keys come free again.
        tree.setSelected(tree.node(3));
        tree.remove(tree.node(2));
        QCOMPARE(keysInOrder(tree), QStringList({"Fold1", "Fold4"}));
        QCOMPARE(tree.node(2)->index, 2);
        QVERIFY(!tree.find(QStringLiteral("Fold3")));
        QVERIFY(!tree.selected());
        addNode(tree, QStringLiteral("Fold4"), 3, QStringLiteral("B1"));
        QCOMPARE(tree.fullPath(tree.node(3)), QStringLiteral("Root\\B\\B1"));

        // A tick from the view is reported for the window's handlers; one set by code is not.
        QSignalSpy byUser(&tree, &FolderTree::tickChangedByUser);
        QVERIFY(tree.setData(tree.indexOf(tree.node(3)), Qt::Checked, Qt::CheckStateRole));
        QCOMPARE(byUser.count(), 1);
        QCOMPARE(byUser.at(0).at(0).toInt(), 3);
        QVERIFY(tree.node(3)->checked);
        tree.setChecked(tree.node(2), true);
        QCOMPARE(byUser.count(), 1);
        QCOMPARE(tree.data(tree.indexOf(tree.node(2)), Qt::CheckStateRole).toInt(), int(Qt::Checked));

        // Ticks set in bulk: one change notice per parent, none for nodes already in that state.
        QSignalSpy changed(&tree, &QAbstractItemModel::dataChanged);
        addNode(tree, QStringLiteral("Fold4"), 6, QStringLiteral("B2"));
        tree.setCheckedMany({tree.node(4), tree.node(3), tree.node(2), tree.node(1)}, true);
        QCOMPARE(changed.count(), 2);
        for (int i = 1; i <= 4; ++i)
            QVERIFY(tree.node(i)->checked);
        QCOMPARE(byUser.count(), 1);
    }

    void modelBulkRemoval()
    {
        // removeChildren on a big folder between other nodes: one pass, indices closed up.
        FolderTree tree;
        addNode(tree, {}, 1, QStringLiteral("Root"));
        addNode(tree, QStringLiteral("Fold1"), 2, QStringLiteral("Big"));
        for (int i = 0; i < 10000; ++i)
            addNode(tree, QStringLiteral("Fold2"), 100 + i, QStringLiteral("Child %1").arg(i));
        addNode(tree, QStringLiteral("Fold100"), 3, QStringLiteral("Grandchild"));
        addNode(tree, QStringLiteral("Fold1"), 4, QStringLiteral("After"));
        QCOMPARE(tree.count(), 10004);
        QCOMPARE(tree.node(10003)->key, QStringLiteral("Fold3"));
        tree.removeChildren(tree.node(2));
        QCOMPARE(keysInOrder(tree), QStringList({"Fold1", "Fold2", "Fold4"}));
        QCOMPARE(tree.node(3)->index, 3);
        QCOMPARE(tree.indexOf(tree.node(3)).row(), 1);
        QVERIFY(!tree.find(QStringLiteral("Fold100")));
        QVERIFY(!tree.find(QStringLiteral("Fold3")));

        // removeNodes gives what removing the same nodes one by one from the highest index does,
        // and the model's signals stay consistent with its rows throughout.
        FolderTree bulk, single;
        QAbstractItemModelTester tester(&bulk, QAbstractItemModelTester::FailureReportingMode::QtTest);
        for (FolderTree *t : {&bulk, &single}) {
            addNode(*t, {}, 1, QStringLiteral("R"));
            for (int i = 2; i <= 9; ++i)
                addNode(*t, QStringLiteral("Fold1"), i, QStringLiteral("N%1").arg(i));
            addNode(*t, QStringLiteral("Fold3"), 30, QStringLiteral("N3a"));
            addNode(*t, QStringLiteral("Fold30"), 31, QStringLiteral("N3b"));
            addNode(*t, QStringLiteral("Fold5"), 50, QStringLiteral("N5a"));
        }
        const QList<int> doomedIds{31, 3, 4, 6, 7, 9, 50};
        std::vector<FolderTree::Node *> doomed;
        for (int id : doomedIds)
            doomed.push_back(bulk.find(QStringLiteral("Fold%1").arg(id)));
        bulk.removeNodes(doomed);
        for (int i = single.count(); i >= 1; --i) {
            FolderTree::Node *n = single.node(i);
            if (doomedIds.contains(int(folderIdOfKey(n->key))))
                single.remove(n);
        }
        QCOMPARE(keysInOrder(bulk), keysInOrder(single));
        QCOMPARE(keysInOrder(bulk), QStringList({"Fold1", "Fold2", "Fold5", "Fold8"}));
        for (int i = 1; i <= bulk.count(); ++i)
            QCOMPARE(bulk.node(i)->index, i);
        QCOMPARE(bulk.indexOf(bulk.node(4)).row(), 2);
    }

    void buildFirstLevel()
    {
        {
            Session s;
            QVERIFY(s.signInTo(m_server, QStringLiteral("Acme")));
            QCOMPARE(s.port.dbType, QStringLiteral("Live"));
            QCOMPARE(s.tree.count(), 1);
            FolderTree::Node *root = s.tree.node(1);
            QCOMPARE(root->key, QStringLiteral("Fold1"));
            QCOMPARE(root->text, QStringLiteral("Acme Corporation [Acme <Live> ]"));
            QCOMPARE(root->image, TreeImage::Root);
            QCOMPARE(s.tree.selected(), root);
            QVERIFY(!root->checked);
            QVERIFY(!s.signIn.blnInvalidDb);
            QCOMPARE(s.signIn.cnDb().state(), repo::adStateOpen);
            QCOMPARE(s.signIn.cnDb().connectionString,
                     QStringLiteral("Provider=SQLOLEDB.1;Persist Security Info=true;User ID=demo;Initial Catalog=Acme;"
                                    "Data Source=")
                         + m_server + QStringLiteral(";Password="));
            QVERIFY(traced().contains(QStringLiteral(
                "SELECT  a.Rec_ID,  a.Folder_Parent,  a.Folder_Name,  a.IsAdmin ,  a.Icon_rec_id ,  a.Folder_Type "
                " FROM ZAR_Folder a, zar_FolderLive b where a.rec_id = b.rec_id and (a.Folder_Parent=0)"
                " ORDER BY a.Folder_Parent, a.Folder_Name")));

            // "&OK" again rebuilds from nothing: the loaded level goes, the connection is reopened.
            s.procs.treeStateFlag = true;
            QVERIFY(s.click(1));
            QVERIFY(s.tree.count() > 1);
            s.port.server = QStringLiteral("  ") + m_server + QStringLiteral("  ");
            QVERIFY(s.signInTo(s.port.server, QStringLiteral("Acme")));
            QCOMPARE(s.tree.count(), 1);
            QVERIFY(!s.procs.treeStateFlag);
            QVERIFY(s.signIn.cnDb().connectionString.contains(QStringLiteral(";Data Source=") + m_server + ";"));
            QCOMPARE(s.tree.selected(), s.tree.node(1));
        }
        {
            // The archive's tree is read from its live partner but named after the archive.
            Session s;
            QVERIFY(s.signInTo(m_server, QStringLiteral("AcmeArchive")));
            QVERIFY(s.signIn.blnArchive);
            QCOMPARE(s.signIn.strLiveDb, QStringLiteral("Acme"));
            QCOMPARE(s.tree.count(), 1);
            QCOMPARE(s.tree.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));
            QCOMPARE(s.tree.node(1)->image, TreeImage::Root);
            QCOMPARE(s.tree.selected(), s.tree.node(1));
            QVERIFY(s.signIn.cnDb().connectionString.contains(QStringLiteral(";Initial Catalog=Acme;")));
        }
        QVERIFY2(g_shown.isEmpty(), qPrintable(g_shown.join('\n')));
    }

    void invalidDatabase()
    {
        Session s;
        QVERIFY(s.signInTo(m_server, QStringLiteral("Scratch")));
        QCOMPARE(s.port.messages, QStringList{QStringLiteral("Invalid database selected")});
        QVERIFY(s.signIn.blnInvalidDb);
        QCOMPARE(s.port.signInScreenShown, 1);
        QCOMPARE(s.tree.count(), 0);
        QVERIFY(!s.tree.selected());
        QVERIFY(g_shown.isEmpty());
        QVERIFY(!HuntERR::isPreserved());
        QCOMPARE(HuntERR::current().number, 0);
    }

    void liveChildren()
    {
        Session s;
        QVERIFY(s.signInTo(m_server, QStringLiteral("Acme")));
        clearTrace();
        s.port.statusHistory.clear();
        QVERIFY(s.click(1));
        QCOMPARE(traced().value(0),
                 QStringLiteral("SELECT a.rec_id, a.icon_rec_id, a.Folder_Type, a.Folder_Name  FROM ZAR_FOLDER a,"
                                " zar_folderLive b WHERE a.rec_id = b.rec_id and  a.FOLDER_PARENT=1"
                                " order by a.Folder_Parent, a.Folder_Name, a.rec_id"));
        // Every type, in name order; icon 0 (Docs 2006), 99 (Legal) and 12 (Unsorted) keep the
        // previous row's picture.
        const QList<int> ids{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
        const QList<int> images{8, 9, 16, 2, 3, 5, 5, 6, 7, 2, 2, 10, 11, 12, 15, 13, 14, 14};
        QCOMPARE(s.childIds(1), ids);
        QCOMPARE(s.childImages(1), images);
        FolderTree::Node *q1 = s.node(15);
        QCOMPARE(q1->text, QStringLiteral("Q1: Plans/Drafts"));
        QCOMPARE(q1->tag, QStringLiteral("Q1: Plans/Drafts"));
        QCOMPARE(q1->index, 15);
        QVERIFY(s.node(1)->expanded);
        QCOMPARE(s.tree.selected(), s.node(1));
        QCOMPARE(s.tree.dropHighlight(), s.node(1));
        QCOMPARE(s.port.statusHistory, QStringList({QStringLiteral(" Processing... Please Wait"), QString()}));
        QCOMPARE(s.port.busyHistory, QList<bool>({true, false}));

        // A second click reloads: same children, once.
        QVERIFY(s.click(1));
        QCOMPARE(s.childIds(1), ids);
        QCOMPARE(s.tree.count(), 19);

        // Deeper levels; reloading an ancestor drops the grandchildren it had.
        QVERIFY(s.click(11));
        QCOMPARE(s.childIds(11), QList<int>{21});
        QCOMPARE(s.childImages(11), QList<int>{TreeImage::Cabinet});
        QVERIFY(s.click(21));
        QCOMPARE(s.childImages(21), QList<int>{7});
        QCOMPARE(s.tree.fullPath(s.node(22)),
                 QStringLiteral("Acme Corporation [Acme <Live> ]\\Head Office\\Filing Room\\Invoices"));
        QVERIFY(s.click(1));
        QCOMPARE(s.tree.count(), 19);
        QVERIFY(!s.node(22));
        QVERIFY(g_shown.isEmpty());
    }

    void archiveChildren()
    {
        Session s;
        QVERIFY(s.signInTo(m_server, QStringLiteral("AcmeArchive")));
        clearTrace();
        QVERIFY(s.click(1));
        // Only children with archived documents in or below them; origin decides the picture,
        // and Legal (icon 99) keeps Finance's.
        QCOMPARE(s.childIds(1), QList<int>({20, 10, 12, 38}));
        QCOMPARE(s.childImages(1), QList<int>({TreeImage::ArchiveFolder1, 7, 7, TreeImage::ArchiveSite}));
        const QStringList statements = traced();
        QVERIFY(statements.value(0).startsWith(QStringLiteral(
            "select a.rec_id, a.icon_rec_id, a.Folder_Parent, a.Folder_Name,  a.Folder_Type, c.TS as TS ,"
            " b.relative_level_no relative_level_no, 'LIVE' as FOLDER  From zar_folder a , zar_folder_matrix b,"
            " zar_folder_name_path c,  ZAR_FolderLive d Where  a.rec_id = c.rec_id and a.Rec_id = b.child_rec_id"
            " And  a.Rec_ID = d.Rec_ID and  b.parent_rec_id = (1) And b.relative_level_no = 1  Union All ")));
        QVERIFY(statements.value(0).endsWith(QStringLiteral(
            " ZAR_FolderArchived d Where  a.rec_id = c.rec_id and a.Rec_id = b.child_rec_id And "
            " a.Rec_ID = d.Rec_ID and  b.parent_rec_id = (1) And b.relative_level_no = 1 "
            " order by a.Folder_Parent, a.Folder_Name, a.rec_id")));
        QCOMPARE(statements.size(), 1 + 18 + 2); // one probe per row of either list, hidden or not

        // Archived subtree: icons 2 and 3 share one picture; the empty archived folder is hidden;
        // a first row without a usable icon gets picture 0.
        QVERIFY(s.click(20));
        QCOMPARE(s.childIds(20), QList<int>({32, 36, 33}));
        QCOMPARE(s.childImages(20), QList<int>({19, TreeImage::ArchiveCabinet, 19}));
        QVERIFY(s.click(33));
        QCOMPARE(s.childImages(33), QList<int>{20});
        QVERIFY(s.click(34));
        QCOMPARE(s.childIds(34), QList<int>{35});
        QCOMPARE(s.childImages(34), QList<int>{0});
        clearTrace();
        QVERIFY(s.click(10));
        QCOMPARE(s.childIds(10), QList<int>{28}); // Budgets holds live documents only
        QCOMPARE(s.childImages(10), QList<int>{9});
        QVERIFY(traced().contains(QStringLiteral(
            "select parent_rec_id from zar_folder_matrix  Where parent_rec_id = 29 and  child_rec_id in"
            " (select folder_rec_id from zar_file a, zar_fileArchived b,  AcmeArchive..zar_FileArchive c"
            " where a.rec_id = b.rec_id and b.rec_id = c.fileid )  Union All  select folder_rec_id from"
            " zar_file a, zar_fileArchived b, AcmeArchive..zar_FileArchive c  where a.rec_id = b.rec_id and"
            " b.rec_id = c.fileid and folder_rec_id = 29")));
        QVERIFY(g_shown.isEmpty());

        // A folder in both lists comes twice: the second add fails, one error window at the click.
        QVERIFY(!s.click(12));
        QCOMPARE(g_shown.size(), 1);
        const QString report = g_shown.first();
        QVERIFY2(report.contains(QString::number(HuntERR::ERR_KEY_NOT_UNIQUE)), qPrintable(report));
        QVERIFY(report.contains(QStringLiteral("FrmSendtofolder.loadChildrenArchive(parentnode)")));
        QVERIFY(report.contains(QStringLiteral("FrmSendtofolder.tvDefaultRoot_NodeClick(Node)")));
        QCOMPARE(s.childIds(12), QList<int>{30});
        QCOMPARE(s.port.status, QStringLiteral(" Processing... Please Wait"));
    }

    void ticksOnTheDemo()
    {
        Session s;
        QVERIFY(s.signInTo(m_server, QStringLiteral("Acme")));
        QVERIFY(s.click(1));
        // The root cannot be ticked.
        QVERIFY(s.tick(1, true));
        QVERIFY(s.tickedIds().isEmpty());
        QCOMPARE(s.tree.selected(), s.node(1));
        QCOMPARE(s.procs.dblCheckedNodeIdx, 0.0);

        QVERIFY(s.click(14));
        QVERIFY(s.click(25));
        QVERIFY(s.click(26));
        QVERIFY(s.tick(14, true));
        QCOMPARE(s.tickedIds(), QList<int>({14, 25, 26, 27}));
        QCOMPARE(s.tree.selected(), s.node(14));
        QCOMPARE(s.procs.dblCheckedNodeIdx, double(s.node(14)->index));

        // Paths of ticked nodes: tags of ticked ancestors below the root, platform separator.
        const QString sep = pathSeparator();
        double idx = s.node(27)->index;
        QCOMPARE(s.procs.FindParentPAth(idx), QStringLiteral("Projects") + sep + "Plans" + sep + "2016" + sep);
        QCOMPARE(idx, double(s.node(14)->index));
        idx = s.node(14)->index;
        QCOMPARE(s.procs.FindParentPAth(idx), QString());

        // An untick under a ticked parent does not stick.
        QVERIFY(s.tick(25, false));
        QCOMPARE(s.tickedIds(), QList<int>({14, 25, 26, 27}));
        QVERIFY(s.tick(14, false));
        QVERIFY(s.tickedIds().isEmpty());

        // Below an unticked parent a child keeps its own tick; the climb stops at the first gap.
        QVERIFY(s.tick(26, true));
        QCOMPARE(s.tickedIds(), QList<int>({26, 27}));
        idx = s.node(27)->index;
        QCOMPARE(s.procs.FindParentPAth(idx), QStringLiteral("2016") + sep);
        QCOMPARE(idx, double(s.node(26)->index));
        idx = s.node(26)->index;
        QCOMPARE(s.procs.FindParentPAth(idx), QString());
        QCOMPARE(idx, double(s.node(26)->index));
        QVERIFY(s.tick(26, false));

        // A folder ticked before it was ever opened hands its tick to the children it loads.
        QVERIFY(s.tick(10, true));
        QCOMPARE(s.tickedIds(), QList<int>{10});
        QVERIFY(s.click(10));
        QCOMPARE(s.childIds(10), QList<int>({29, 28}));
        QCOMPARE(s.tickedIds(), QList<int>({10, 29, 28}));
        // ... and an unticked one clears them on the next click.
        s.tree.setChecked(s.node(10), false);
        QVERIFY(s.click(10));
        QVERIFY(s.tickedIds().isEmpty());
        QVERIFY(g_shown.isEmpty());
    }

    void ticksByFullPath()
    {
        // The descendants are found by full path: a later sibling whose path starts with the
        // ticked folder's path goes along; an earlier one does not.
        PlainFormPort port;
        SignIn signIn(port);
        FolderTree tree;
        TreeProcs procs(signIn, tree);
        addNode(tree, {}, 1, QStringLiteral("Root"));
        addNode(tree, QStringLiteral("Fold1"), 6, QStringLiteral("Doc"));
        addNode(tree, QStringLiteral("Fold1"), 7, QStringLiteral("Docs"));
        addNode(tree, QStringLiteral("Fold7"), 70, QStringLiteral("Minutes"));
        addNode(tree, QStringLiteral("Fold1"), 8, QStringLiteral("Docs 2006"));
        addNode(tree, QStringLiteral("Fold8"), 80, QStringLiteral("Old"));
        addNode(tree, QStringLiteral("Fold1"), 9, QStringLiteral("docs 2007"));
        tree.setChecked(tree.find("Fold7"), true);
        QVERIFY(procs.tvDefaultRoot_NodeCheck(tree.find("Fold7")));
        QVERIFY(procs.tvDefaultRoot_Click());
        QStringList ticked;
        for (int i = 1; i <= tree.count(); ++i)
            if (tree.node(i)->checked)
                ticked << tree.node(i)->key;
        QCOMPARE(ticked, QStringList({"Fold7", "Fold70", "Fold8", "Fold80"}));

        // A selected node without children turns the whole operation off.
        tree.setSelected(tree.find("Fold6"));
        procs.DeSelectAllChild(tree.find("Fold7")->index);
        QVERIFY(tree.find("Fold70")->checked);

        // Tags, not texts, make the path, cleaned as file names are.
        FolderTree::Node *odd = addNode(tree, QStringLiteral("Fold1"), 10, QStringLiteral("Shown text"));
        tree.setTag(odd, QStringLiteral("Q1: Plans/Drafts"));
        FolderTree::Node *leaf = addNode(tree, QStringLiteral("Fold10"), 100, QStringLiteral("Leaf"));
        tree.setChecked(odd, true);
        tree.setChecked(leaf, true);
        QString cleaned = QStringLiteral("Q1: Plans/Drafts");
        const QString expected = RemoveSpChr(cleaned) + pathSeparator();
        QVERIFY(!expected.contains(QLatin1Char(':')));
        double idx = leaf->index;
        QCOMPARE(procs.FindParentPAth(idx), expected);
        QCOMPARE(odd->tag, QStringLiteral("Q1: Plans/Drafts"));

        // DeleteChild removes by the same path test, look-alike sibling included.
        tree.setSelected(tree.find("Fold7"));
        procs.DeleteChild(tree, 7);
        QCOMPARE(keysInOrder(tree), QStringList({"Fold1", "Fold6", "Fold7", "Fold9", "Fold10", "Fold100"}));
        QVERIFY(g_shown.isEmpty());
    }

    void tickErrorsReachOneWindow()
    {
        // A top node that is not the repository root has no parent to look at.
        PlainFormPort port;
        SignIn signIn(port);
        FolderTree tree;
        TreeProcs procs(signIn, tree);
        addNode(tree, {}, 5, QStringLiteral("Stray top"));
        addNode(tree, QStringLiteral("Fold5"), 6, QStringLiteral("Child"));
        QVERIFY(!procs.tvDefaultRoot_NodeCheck(tree.node(1)));
        QCOMPARE(g_shown.size(), 1);
        QVERIFY(g_shown.first().contains(QStringLiteral("FrmSendtofolder.tvDefaultRoot_NodeCheck(Node)")));
        // The click event on an empty tree, and the path of a top node, fail the same way.
        FolderTree empty;
        TreeProcs none(signIn, empty);
        QVERIFY(!none.tvDefaultRoot_Click());
        QCOMPARE(g_shown.size(), 2);
        double idx = 1;
        QVERIFY(errorNumberOf([&] { procs.FindParentPAth(idx); }) != 0);
        HuntERR::reset();
        QVERIFY(!procs.tvDefaultRoot_NodeClick(nullptr));
        QCOMPARE(g_shown.size(), 3);
    }
};

QTEST_GUILESS_MAIN(TestTree)
#include "test_tree.moc"
