// The folder tree through the real window and its view, on the demo repository: a click on a
// node's label loads its children, a click on a tick box ticks (and only ticks), the keyboard
// loads and ticks too, archive children wear archive pictures.

#include "app/foldertreeview.h"
#include "app/treeimages.h"
#include "testsupport.h"
#include "windowharness.h"

#include <QImage>
#include <QMouseEvent>

using app::FolderItemDelegate;
using app::FolderTreeView;
namespace TreeImages = app::TreeImages;

class TestTreeWindow : public QObject {
    Q_OBJECT

    DemoFixture m_fx;
    QString m_trace;
    std::unique_ptr<MainWindowHarness> h;

    FolderTree &tree() { return h->w->folderTree(); }
    FolderTreeView *view() { return h->w->treeView(); }
    FolderTree::Node *node(int id) { return h->node(id); }

    // A fresh window signed in to the database.
    void signInTo(const QString &database)
    {
        QVERIFY(h->open());
        QVERIFY(h->signInTo(m_fx.demo, database));
    }

    QPoint labelOf(FolderTree::Node *n) { return h->labelOf(n); }
    void clickLabel(FolderTree::Node *n) { h->clickLabel(n); }
    void clickTick(FolderTree::Node *n) { h->clickTick(n); }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        m_trace = m_fx.filePath(QStringLiteral("trace.sql"));
    }

    void init() { h = std::make_unique<MainWindowHarness>(); }
    void cleanup() { h.reset(); }

    void clicksAndTicksInTheView()
    {
        // The view is hidden while the sign-in fills the tree, and shown again after it.
        QVERIFY(h->open());
        QList<bool> hiddenWhileFilled;
        const auto filling = connect(&tree(), &QAbstractItemModel::rowsInserted, this,
                                     [&] { hiddenWhileFilled << view()->isHidden(); });
        QVERIFY(h->signInTo(m_fx.demo, QStringLiteral("Acme")));
        disconnect(filling);
        QCOMPARE(hiddenWhileFilled, QList<bool>{true});
        QVERIFY(!view()->isHidden());
        FolderTree::Node *root = tree().node(1);
        QVERIFY(root->children.empty());

        // A click on the name loads the children, once however often it comes.
        clickLabel(root);
        clickLabel(root);
        QCOMPARE(root->children.size(), size_t(18));
        QCOMPARE(view()->model()->rowCount(tree().indexOf(root)), 18);
        QVERIFY(view()->isExpanded(tree().indexOf(root)));

        // Closed by its arrow, then double-clicked as the window system delivers it (press,
        // release, double-click, release): loaded afresh and left open.
        view()->collapse(tree().indexOf(root));
        QVERIFY(!root->expanded);
        const QPoint label = labelOf(root);
        QTest::mouseClick(view()->viewport(), Qt::LeftButton, {}, label);
        QMouseEvent twice(QEvent::MouseButtonDblClick, label, view()->viewport()->mapToGlobal(label), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view()->viewport(), &twice);
        QTest::mouseRelease(view()->viewport(), Qt::LeftButton, {}, label);
        QVERIFY(root->expanded && view()->isExpanded(tree().indexOf(root)));
        QCOMPARE(root->children.size(), size_t(18));

        // A tick is a tick only: nothing is read from the database and the loaded children stay
        // the same nodes, all ticked with their folder; a sibling is left alone.
        clickLabel(node(14)); // Projects > Plans
        clickLabel(node(25)); // Plans > 2016
        FolderTree::Node *projects = node(14), *plans = node(25), *y2016 = node(26);
        QFile::remove(m_trace);
        const TraceFileScope trace(m_trace);
        clickTick(projects);
        QVERIFY(!QFile::exists(m_trace));
        QCOMPARE(node(25), plans);
        QVERIFY(projects->checked && plans->checked && y2016->checked);
        QVERIFY(!node(13)->checked);
        QCOMPARE(view()->model()->data(tree().indexOf(y2016), Qt::CheckStateRole).toInt(), int(Qt::Checked));

        // Unticked in its box, the folder unticks what is loaded below it, still without reading.
        clickTick(projects);
        QVERIFY(!projects->checked && !plans->checked && !y2016->checked);
        QVERIFY(!QFile::exists(m_trace));

        // A ticked folder clicked again reads its children afresh and hands them its tick. (Which
        // ticks stick under a ticked parent is the tree procedures' rule, held in test_tree.)
        clickTick(plans);
        clickLabel(plans);
        QVERIFY(QFile::exists(m_trace));
        QVERIFY(node(26) && node(26)->checked);

        // A click on a name is followed by the tree's click, which hands the last tick change
        // down again (here over a tick the view never reported).
        tree().setChecked(node(26), false);
        clickLabel(node(10)); // Finance, which has subfolders
        QVERIFY(node(26)->checked);
        QVERIFY(h->errors.shown.isEmpty());
    }

    // Without a mouse: Right on a closed node and Enter load its children as a click on its name
    // does (the same statements, the same tree), Right on an open node moves into it, Space ticks.
    void keyboardLoadsChildren()
    {
        auto traced = [this] {
            QFile f(m_trace);
            return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
        };
        auto byMouse = [&](FolderTree::Node *n) {
            QFile::remove(m_trace);
            clickLabel(n);
            return traced();
        };
        auto byKey = [&](Qt::Key key) {
            QFile::remove(m_trace);
            QTest::keyClick(view(), key);
            return traced();
        };
        auto current = [this] { return tree().nodeAt(view()->currentIndex()); };
        const TraceFileScope trace(m_trace);

        // What a click does on the root and on Projects, to hold the keys against.
        signInTo(QStringLiteral("Acme"));
        const QByteArray rootClick = byMouse(tree().node(1));
        const QByteArray projectsClick = byMouse(node(14));
        QVERIFY(!rootClick.isEmpty() && !projectsClick.isEmpty());

        signInTo(QStringLiteral("Acme"));
        FolderTree::Node *root = tree().node(1);
        view()->setFocus();
        QCOMPARE(current(), root);
        QCOMPARE(byKey(Qt::Key_Right), rootClick);
        QCOMPARE(root->children.size(), size_t(18));
        QVERIFY(view()->isExpanded(tree().indexOf(root)));

        // Right on the open root moves to its first child and reads nothing.
        QVERIFY(byKey(Qt::Key_Right).isEmpty());
        QCOMPARE(current(), node(2));
        while (current() != node(14) && current() != root->children.back())
            QTest::keyClick(view(), Qt::Key_Down);
        QCOMPARE(current(), node(14));
        QCOMPARE(byKey(Qt::Key_Return), projectsClick);
        QVERIFY(view()->isExpanded(tree().indexOf(node(14))));
        QCOMPARE(node(14)->children.size(), size_t(1));

        // Down into Plans: Enter on the keypad loads it, Space ticks it with what is loaded below.
        QTest::keyClick(view(), Qt::Key_Down);
        QVERIFY(!byKey(Qt::Key_Enter).isEmpty());
        QTest::keyClick(view(), Qt::Key_Space);
        QVERIFY(node(25)->checked && node(26)->checked && !node(14)->checked);
        QVERIFY(h->errors.shown.isEmpty());
    }

    void archivePictures()
    {
        signInTo(QStringLiteral("AcmeArchive"));
        clickLabel(tree().node(1));
        clickLabel(node(20)); // Archive 2010: archived folders only
        // The view draws each node's picture, archive ones (and only those) from the archive set.
        auto *delegate = qobject_cast<FolderItemDelegate *>(view()->itemDelegate());
        QVERIFY(delegate);
        QStringList archived;
        for (int i = 2; i <= tree().count(); ++i) {
            const FolderTree::Node *n = tree().node(i);
            const QStyleOptionViewItem option = delegate->optionFor(QStyleOptionViewItem(), tree().indexOf(n));
            QVERIFY(option.features & QStyleOptionViewItem::HasDecoration);
            QCOMPARE(option.icon.pixmap(16).toImage(), TreeImages::icon(n->image).pixmap(16).toImage());
            if (TreeImages::isArchive(n->image))
                archived << n->text;
        }
        QCOMPARE(archived, QStringList({"Archive 2010", "Old Branch", "Board Minutes", "Closed Accounts", "Old Projects"}));
        QVERIFY(h->errors.shown.isEmpty());
    }

    void imageList()
    {
        QVERIFY(TreeImages::icon(0).isNull() && TreeImages::icon(30).isNull());
        QList<QImage> seen;
        for (int i = 1; i <= 29; ++i) {
            const QIcon icon = TreeImages::icon(i);
            // Drawn for the screen's own size and for twice that, not scaled up.
            QVERIFY(icon.availableSizes().contains(QSize(16, 16)) && icon.availableSizes().contains(QSize(32, 32)));
            const QImage picture = TreeImages::pixmap(i, 16).toImage();
            int opaque = 0;
            for (int y = 0; y < picture.height(); ++y)
                for (int x = 0; x < picture.width(); ++x)
                    opaque += qAlpha(picture.pixel(x, y)) > 128;
            QVERIFY2(opaque > 40, qPrintable(QString::number(i)));
            QVERIFY2(!seen.contains(picture), qPrintable(QStringLiteral("picture %1 repeats another").arg(i)));
            seen << picture;
        }
    }
};

QTEST_MAIN(TestTreeWindow)
#include "test_tree_window.moc"
