// The folder tree: the model on its own, then the tree procedures on the demo repository, signed
// in, clicked and ticked as the window does it.

#include "errors/hunterr.h"
#include "repository_suite.h"
#include "scopes.h"
#include "testsupport.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>

namespace TreeImage = tree::TreeImage;
using tree::folderIdOfKey;

namespace {

// A node added by hand (parent 0: a top node), for what needs no database.
FolderTree::Node *add(FolderTree &tree, int parent, int id, const QString &text)
{
    FolderTree::Node *n = tree.add(parent ? QStringLiteral("Fold%1").arg(parent) : QString(),
                                   QStringLiteral("Fold%1").arg(id), text, 4);
    tree.setTag(n, text);
    return n;
}

FolderTree::Node *find(const FolderTree &tree, int id)
{
    return tree.find(QStringLiteral("Fold%1").arg(id));
}

// The folder ids of the nodes in index order, all or the ticked ones.
QString ids(const FolderTree &tree, bool tickedOnly = false)
{
    QStringList out;
    for (int i = 1; i <= tree.count(); ++i)
        if (!tickedOnly || tree.node(i)->checked)
            out << QString::number(qint64(folderIdOfKey(tree.node(i)->key)));
    return out.join(QLatin1Char(' '));
}

QString ticked(const FolderTree &tree)
{
    return ids(tree, true);
}

// "id:image" of each child, in order.
QString loaded(const FolderTree::Node *n)
{
    QStringList out;
    for (const FolderTree::Node *c : n->children)
        out << QStringLiteral("%1:%2").arg(qint64(folderIdOfKey(c->key))).arg(c->image);
    return out.join(QLatin1Char(' '));
}

} // namespace

class TestTree : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    ErrorTrailScope m_trail; // what the error trail would have put in front of the person
    QString m_trace;
    std::unique_ptr<TraceFileScope> m_tracing; // every statement of the whole run

    QStringList traced() const
    {
        QFile f(m_trace);
        if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
            return {};
        return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        m_trace = m_fx.filePath(QStringLiteral("statements.sql"));
        m_tracing = std::make_unique<TraceFileScope>(m_trace);
    }

    void init()
    {
        HuntERR::reset();
        m_trail.shown.clear();
        QFile::remove(m_trace);
    }

    void modelIndicesAndRemoval()
    {
        FolderTree tree;
        QAbstractItemModelTester tester(&tree, QAbstractItemModelTester::FailureReportingMode::QtTest);
        add(tree, 0, 1, QStringLiteral("Root"));
        for (int i = 2; i <= 9; ++i)
            add(tree, 1, i, QStringLiteral("N%1").arg(i));
        add(tree, 3, 30, QStringLiteral("N3a"));
        add(tree, 30, 31, QStringLiteral("N3b"));
        add(tree, 5, 50, QStringLiteral("N5a"));
        QCOMPARE(ids(tree), QStringLiteral("1 2 3 4 5 6 7 8 9 30 31 50"));
        QCOMPARE(tree.node(11)->index, 11);
        QCOMPARE(tree.indexOf(tree.node(11)).row(), 0);
        QCOMPARE(tree.fullPath(tree.node(11)), QStringLiteral("Root\\N3\\N3a\\N3b"));

        QCOMPARE(suite::failure([&] { add(tree, 1, 30, QStringLiteral("again")); }), HuntERR::ERR_KEY_NOT_UNIQUE);
        QCOMPARE(suite::failure([&] { add(tree, 99, 60, QStringLiteral("orphan")); }), HuntERR::ERR_ELEMENT_NOT_FOUND);
        QCOMPARE(suite::failure([&] { tree.node(0); }), HuntERR::ERR_INDEX_OUT_OF_BOUNDS);
        QCOMPARE(suite::failure([&] { tree.node(13); }), HuntERR::ERR_INDEX_OUT_OF_BOUNDS);
        QCOMPARE(tree.count(), 12); // failed adds leave nothing behind

        // Removing a subtree closes the gap; its keys come free again.
        tree.setSelected(find(tree, 31));
        tree.remove(find(tree, 3));
        QCOMPARE(ids(tree), QStringLiteral("1 2 4 5 6 7 8 9 50"));
        QCOMPARE(tree.node(9)->index, 9);
        QVERIFY(!tree.selected());
        add(tree, 4, 3, QStringLiteral("N4a"));
        QCOMPARE(tree.fullPath(tree.node(10)), QStringLiteral("Root\\N4\\N4a"));

        // Ticks in bulk: one change notice per parent, none for nodes already ticked.
        QSignalSpy changed(&tree, &QAbstractItemModel::dataChanged);
        tree.setChecked(tree.node(1), true);
        tree.setCheckedMany({find(tree, 7), find(tree, 6), find(tree, 3), tree.node(1)}, true);
        QCOMPARE(changed.count(), 1 + 2);
        QCOMPARE(ticked(tree), QStringLiteral("1 6 7 3"));

        // Many removed at once (some inside another's subtree) close up as removing them one by
        // one from the highest index would.
        tree.removeNodes({find(tree, 3), find(tree, 4), find(tree, 6), find(tree, 50), find(tree, 5), find(tree, 9)});
        QCOMPARE(ids(tree), QStringLiteral("1 2 7 8"));
        QCOMPARE(tree.node(4)->index, 4);
        QCOMPARE(tree.indexOf(tree.node(4)).row(), 2);
    }

    void liveTree()
    {
        DemoSession d(m_fx.demo, QStringLiteral("Acme"));
        QCOMPARE(d.opened, Opened::Yes);
        QCOMPARE(ids(d.s.tree), QStringLiteral("1"));
        QCOMPARE(d.node(1)->text, QStringLiteral("Acme Corporation [Acme <Live> ]"));
        QCOMPARE(d.node(1)->image, TreeImage::Root);
        QCOMPARE(d.s.tree.selected(), d.node(1));
        QVERIFY(traced().contains(suite::firstLevel(0)));

        QFile::remove(m_trace);
        d.port.statusHistory.clear();
        d.port.busyHistory.clear();
        QVERIFY(d.click(1));
        QCOMPARE(traced(), QStringList{suite::liveChildren(1)});
        // Every type, in name order, live pictures; icon 0 (Docs 2006), 99 (Legal) and 12
        // (Unsorted) keep the previous row's picture.
        const QString rootChildren = QStringLiteral(
            "2:8 3:9 4:16 5:2 6:3 7:5 8:5 9:6 10:7 11:2 12:2 13:10 14:11 15:12 16:15 17:13 18:14 19:14");
        QCOMPARE(loaded(d.node(1)), rootChildren);
        QCOMPARE(d.node(15)->tag, QStringLiteral("Q1: Plans/Drafts"));
        QVERIFY(d.node(1)->expanded);
        QCOMPARE(d.port.statusHistory, QStringList({QStringLiteral(" Processing... Please Wait"), QString()}));
        QCOMPARE(d.port.busyHistory, QList<bool>({true, false}));

        // A second click reloads: the same children, once.
        QVERIFY(d.click(1));
        QCOMPARE(loaded(d.node(1)), rootChildren);
        QCOMPARE(d.s.tree.count(), 19);

        // Deeper levels; reloading an ancestor drops the grandchildren it had.
        QVERIFY(d.click(11));
        QCOMPARE(loaded(d.node(11)), QStringLiteral("21:3"));
        QVERIFY(d.click(21));
        QCOMPARE(loaded(d.node(21)), QStringLiteral("22:7"));
        QVERIFY(d.click(1));
        QCOMPARE(d.s.tree.count(), 19);

        // "&OK" again rebuilds from nothing.
        QCOMPARE(d.s.openDatabase(QStringLiteral("Acme")), Opened::Yes);
        QCOMPARE(ids(d.s.tree), QStringLiteral("1"));

        // A database without the repository's tables is a message, not an error window.
        DemoSession scratch(m_fx.demo, QStringLiteral("Scratch"));
        QCOMPARE(scratch.opened, Opened::InvalidDatabase);
        QCOMPARE(scratch.port.messages, QStringList{QStringLiteral("Invalid database selected")});
        QCOMPARE(scratch.port.signInScreenShown, 1);
        QCOMPARE(scratch.s.tree.count(), 0);
        QVERIFY2(m_trail.shown.isEmpty(), qPrintable(m_trail.shown.join('\n')));
    }

    void archiveTree()
    {
        // Read from the live partner, named after the archive.
        DemoSession d(m_fx.demo, QStringLiteral("AcmeArchive"));
        QCOMPARE(d.opened, Opened::Yes);
        QCOMPARE(d.node(1)->text, QStringLiteral("Acme Corporation [AcmeArchive <Archive> ]"));
        QVERIFY(d.s.signin.cnDb().connectionString.contains(QStringLiteral(";Initial Catalog=Acme;")));

        QFile::remove(m_trace);
        QVERIFY(d.click(1));
        // Only children with archived documents in or below them; origin decides the picture,
        // and Legal (icon 99) keeps Finance's. One probe per row of either list, shown or not.
        QCOMPARE(loaded(d.node(1)), QStringLiteral("20:17 10:7 12:7 38:28"));
        QStringList statements{suite::archiveChildren(1)};
        for (int id : {2, 3, 4, 20, 5, 6, 7, 8, 9, 10, 11, 12, 13, 38, 14, 15, 16, 17, 18, 19})
            statements << suite::archivedBelow(id, QStringLiteral("AcmeArchive"));
        QCOMPARE(traced(), statements);

        // Icons 2 and 3 share one archive picture; the empty archived folder is hidden; a first
        // row without a usable icon gets picture 0; Budgets holds live documents only.
        QVERIFY(d.click(20));
        QCOMPARE(loaded(d.node(20)), QStringLiteral("32:19 36:29 33:19"));
        QVERIFY(d.click(33));
        QCOMPARE(loaded(d.node(33)), QStringLiteral("34:20"));
        QVERIFY(d.click(34));
        QCOMPARE(loaded(d.node(34)), QStringLiteral("35:0"));
        QVERIFY(d.click(10));
        QCOMPARE(loaded(d.node(10)), QStringLiteral("28:9"));
        QVERIFY(m_trail.shown.isEmpty());

        // A live folder with archived documents; its live-only sibling is hidden.
        QVERIFY(d.click(12));
        QCOMPARE(loaded(d.node(12)), QStringLiteral("30:10"));
        QVERIFY(m_trail.shown.isEmpty());
    }

    void folderInBothLists()
    {
        // Shared Cases is in both lists: the second add fails, one error window at the click.
        DemoSession d(m_fx.demo, QStringLiteral("TwofoldArchive"));
        QCOMPARE(d.opened, Opened::Yes);
        QVERIFY(!d.click(1));
        QCOMPARE(m_trail.shown.size(), 1);
        const QString report = m_trail.shown.first();
        QVERIFY2(report.contains(QString::number(HuntERR::ERR_KEY_NOT_UNIQUE)), qPrintable(report));
        // The tool raised it itself: the report names the application as its source.
        QVERIFY(report.contains(QStringLiteral("  Source: ") + QCoreApplication::applicationName() + " \r\n"));
        QVERIFY(report.contains(QStringLiteral("FrmSendtofolder.loadChildrenArchive(parentnode)")));
        QVERIFY(report.contains(QStringLiteral("FrmSendtofolder.tvDefaultRoot_NodeClick(Node)")));
        QCOMPARE(loaded(d.node(1)).left(2), QStringLiteral("3:"));
        QCOMPARE(d.port.status, QStringLiteral(" Processing... Please Wait"));
        m_trail.shown.clear();
    }

    void ticksOnTheDemo()
    {
        DemoSession d(m_fx.demo, QStringLiteral("Acme"));
        QVERIFY(d.click(1));
        QVERIFY(d.click(7));
        // The root cannot be ticked: it stays unticked and becomes the selected node.
        QVERIFY(d.tick(1));
        QCOMPARE(ticked(d.s.tree), QString());
        QCOMPARE(d.s.tree.selected(), d.node(1));

        QVERIFY(d.click(14));
        QVERIFY(d.click(25));
        QVERIFY(d.click(26));
        QVERIFY(d.tick(14));
        QCOMPARE(ticked(d.s.tree), QStringLiteral("14 25 26 27"));

        // An untick under a ticked parent does not stick; unticking the folder unticks all below.
        QVERIFY(d.tick(25, false));
        QCOMPARE(ticked(d.s.tree), QStringLiteral("14 25 26 27"));
        QVERIFY(d.tick(14, false));
        QCOMPARE(ticked(d.s.tree), QString());

        // Below an unticked parent a child keeps its own tick; the climb stops at the first gap.
        QVERIFY(d.tick(26));
        QCOMPARE(ticked(d.s.tree), QStringLiteral("26 27"));
        QVERIFY(d.tick(26, false));

        // A folder ticked before it was ever opened hands its tick to the children it loads;
        // an unticked one clears them on the next click.
        QVERIFY(d.tick(10));
        QCOMPARE(ticked(d.s.tree), QStringLiteral("10"));
        QVERIFY(d.click(10));
        QCOMPARE(ticked(d.s.tree), QStringLiteral("10 29 28"));
        d.s.tree.setChecked(d.node(10), false);
        QVERIFY(d.click(10));
        QCOMPARE(ticked(d.s.tree), QString());

        // After a click on a name the tree's click looks at the folder ticked last wherever a
        // reload has moved it (Budgets), not at the node now at its old place (Filing Room).
        QVERIFY(d.click(11) && d.click(21));
        QVERIFY(d.tick(22) && d.tick(29));
        QVERIFY(d.click(10));
        QCOMPARE(ticked(d.s.tree), QStringLiteral("22"));
        QVERIFY(m_trail.shown.isEmpty());
    }

    void ticksAndPathsOnAHandBuiltTree()
    {
        PlainFormPort port;
        HeadlessSession h(port);
        add(h.tree, 0, 1, QStringLiteral("Root"));
        add(h.tree, 1, 6, QStringLiteral("Doc"));
        add(h.tree, 1, 7, QStringLiteral("Docs"));
        add(h.tree, 7, 70, QStringLiteral("Minutes"));
        add(h.tree, 1, 8, QStringLiteral("Docs 2006"));
        add(h.tree, 8, 80, QStringLiteral("Old"));
        add(h.tree, 1, 9, QStringLiteral("docs 2007"));
        // Descendants are found by full path: a later sibling whose path starts with the ticked
        // folder's goes along; an earlier one, or one differing in case, does not.
        QVERIFY(h.tick(find(h.tree, 7)));
        QCOMPARE(ticked(h.tree), QStringLiteral("7 70 8 80"));

        QVERIFY(m_trail.shown.isEmpty());

        // A top node that is not the repository root has no parent to look at: each event that
        // meets it, or no node at all, ends in one error window.
        FolderTree::Node *stray = add(h.tree, 0, 5, QStringLiteral("Stray top"));
        QVERIFY(!h.tick(stray));
        QCOMPARE(m_trail.shown.size(), 1);
        QVERIFY(m_trail.shown.first().contains(QStringLiteral("FrmSendtofolder.tvDefaultRoot_NodeCheck(Node)")));
        HuntERR::reset();
        QVERIFY(!h.click(nullptr));
        HeadlessSession empty(port);
        QVERIFY(!empty.procs.tvDefaultRoot_Click());
        QCOMPARE(m_trail.shown.size(), 3);
    }
};

QTEST_GUILESS_MAIN(TestTree)
#include "test_tree.moc"
