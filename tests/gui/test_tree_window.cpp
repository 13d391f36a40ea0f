// The folder tree through the real window and its view, on the demo repository: a click on a
// node's label loads its children, a click on a tick box ticks (and only ticks), the keyboard
// ticks too, the root never keeps a tick, archive children wear archive pictures.

#include "app/dialogs.h"
#include "app/foldertreeview.h"
#include "app/frmsendtofolder.h"
#include "app/treeimages.h"
#include "errors/hunterr.h"
#include "repository/connection.h"
#include "testsupport.h"

#include <QApplication>
#include <QComboBox>
#include <QMouseEvent>
#include <QFile>
#include <QImage>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

class TestTreeWindow : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    QString m_demo;
    QString m_trace;
    QStringList m_errors;
    std::unique_ptr<FrmSendtofolder> m_w;

    FolderTree &tree() { return m_w->folderTree(); }
    FolderTreeView *view() { return m_w->findChild<FolderTreeView *>(QStringLiteral("tvDefaultRoot")); }
    FolderTree::Node *node(const char *key) { return tree().find(QString::fromLatin1(key)); }

    void signInTo(const QString &database)
    {
        m_w = std::make_unique<FrmSendtofolder>();
        m_w->show();
        m_w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_w.get()));
        m_w->findChild<QLineEdit *>(QStringLiteral("TxtLoginPsw"))->setText(QStringLiteral("brimex"));
        QVERIFY(m_w->cmdUserLogin_Click());
        m_w->findChild<QLineEdit *>(QStringLiteral("txServerName"))->setText(m_demo);
        m_w->findChild<QLineEdit *>(QStringLiteral("txtUserName"))->setText(QStringLiteral("demo"));
        QVERIFY(m_w->cboDBName_GotFocus());
        auto *list = m_w->findChild<QComboBox *>(QStringLiteral("cboDBName"));
        list->setCurrentIndex(list->findText(database));
        QVERIFY(m_w->cboDBName_Click());
        QVERIFY(m_w->cmdlogin_Click());
        QCOMPARE(m_w->currentScreen()->objectName(), QStringLiteral("frameSelectFolder"));
    }

    // A person's click on a node's name.
    void clickLabel(FolderTree::Node *n)
    {
        QVERIFY(n);
        view()->scrollTo(tree().indexOf(n));
        const QRect box = view()->checkBoxRect(n);
        const QRect row = view()->rowRect(n);
        QVERIFY(!box.isEmpty());
        QTest::mouseClick(view()->viewport(), Qt::LeftButton, {}, QPoint(box.right() + 40, row.center().y()));
    }

    // A person's click on a node's tick box.
    void clickTick(FolderTree::Node *n)
    {
        QVERIFY(n);
        view()->scrollTo(tree().indexOf(n));
        const QRect box = view()->checkBoxRect(n);
        QVERIFY(!box.isEmpty());
        QTest::mouseClick(view()->viewport(), Qt::LeftButton, {}, box.center());
    }

    QStringList childTexts(const FolderTree::Node *n)
    {
        QStringList texts;
        for (const FolderTree::Node *c : n->children)
            texts << c->text;
        return texts;
    }

    QList<int> childImages(const FolderTree::Node *n)
    {
        QList<int> images;
        for (const FolderTree::Node *c : n->children)
            images << c->image;
        return images;
    }

    int statements()
    {
        QFile file(m_trace);
        if (!file.open(QIODevice::ReadOnly))
            return 0;
        return int(file.readAll().count('\n'));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        QString error;
        m_demo = writeDemo(m_tmp.path(), &error);
        QVERIFY2(!m_demo.isEmpty(), qPrintable(error));
        m_trace = m_tmp.filePath(QStringLiteral("trace.sql"));
        Dialogs::setScripted(true);
    }

    void init()
    {
        m_errors.clear();
        HuntERR::reset();
        HuntERR::setShower([this](const QString &text) { m_errors << text; });
        Dialogs::setScripted(true);
    }

    void cleanup()
    {
        m_w.reset();
        repo::setTraceFile(QString());
    }

    void clickingTheLiveRoot()
    {
        signInTo(QStringLiteral("Acme"));
        FolderTree::Node *root = tree().node(1);
        QCOMPARE(root->key, QStringLiteral("Fold1"));
        QVERIFY(root->children.empty());

        clickLabel(root);
        const QStringList names{QStringLiteral("A/B"),          QStringLiteral("A:B"),
                                QStringLiteral("Admin"),        QStringLiteral("Branch Office"),
                                QStringLiteral("Contracts"),    QStringLiteral("Docs"),
                                QStringLiteral("Docs 2006"),    QStringLiteral("Empty Folder"),
                                QStringLiteral("Finance"),      QStringLiteral("Head Office"),
                                QStringLiteral("Legal"),        QStringLiteral("Marketing"),
                                QStringLiteral("Projects"),     QStringLiteral("Q1: Plans/Drafts"),
                                QStringLiteral("Recycle Bin"),  QStringLiteral("Templates"),
                                QStringLiteral("Training"),     QStringLiteral("Unsorted")};
        QCOMPARE(childTexts(root), names);
        // Live pictures; an unknown icon id keeps the picture of the row before.
        QCOMPARE(childImages(root), (QList<int>{8, 9, 16, 2, 3, 5, 5, 6, 7, 2, 2, 10, 11, 12, 15, 13, 14, 14}));
        QCOMPARE(view()->model()->rowCount(tree().indexOf(root)), names.size());
        QVERIFY(view()->isExpanded(tree().indexOf(root)));
        QCOMPARE(view()->currentIndex(), tree().indexOf(root));
        QVERIFY(!root->checked);
        QCOMPARE(m_w->findChild<QLineEdit *>(QStringLiteral("txtProg"))->text(), QString());

        // The same children once on a second click, not twice.
        clickLabel(root);
        QCOMPARE(childTexts(root), names);
        QVERIFY(view()->isExpanded(tree().indexOf(root)));

        // Closed by its arrow, then double-clicked: loaded afresh and left open.
        view()->collapse(tree().indexOf(root));
        QVERIFY(!root->expanded);
        const QPoint label(view()->checkBoxRect(root).right() + 40, view()->rowRect(root).center().y());
        // As the window system delivers it: press, release, double-click, release.
        QTest::mouseClick(view()->viewport(), Qt::LeftButton, {}, label);
        QMouseEvent twice(QEvent::MouseButtonDblClick, label, view()->viewport()->mapToGlobal(label), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view()->viewport(), &twice);
        QTest::mouseRelease(view()->viewport(), Qt::LeftButton, {}, label);
        QVERIFY(root->expanded);
        QVERIFY(view()->isExpanded(tree().indexOf(root)));
        QCOMPARE(childTexts(root), names);

        // Clicking a child's name loads its own children and selects it.
        clickLabel(node("Fold14"));
        QCOMPARE(childTexts(node("Fold14")), QStringList{QStringLiteral("Plans")});
        QCOMPARE(tree().selected(), node("Fold14"));
        QCOMPARE(view()->currentIndex(), tree().indexOf(node("Fold14")));
        QVERIFY(m_errors.isEmpty());
    }

    void tickingInTheView()
    {
        signInTo(QStringLiteral("Acme"));
        clickLabel(tree().node(1));
        clickLabel(node("Fold14")); // Projects > Plans
        clickLabel(node("Fold25")); // Plans > 2016
        FolderTree::Node *projects = node("Fold14");
        FolderTree::Node *plans = node("Fold25");
        FolderTree::Node *y2016 = node("Fold26");
        QVERIFY(projects && plans && y2016);

        // A tick is a tick only: no child loading runs, so nothing is read from the database and
        // the loaded children stay the same nodes.
        QFile::remove(m_trace);
        repo::setTraceFile(m_trace);
        clickTick(projects);
        QCOMPARE(statements(), 0);
        QCOMPARE(node("Fold25"), plans);
        QVERIFY(projects->checked);
        QVERIFY(plans->checked);
        QVERIFY(y2016->checked);
        QVERIFY(!node("Fold13")->checked); // a sibling is left alone
        QCOMPARE(view()->model()->data(tree().indexOf(y2016), Qt::CheckStateRole).toInt(), int(Qt::Checked));
        QCOMPARE(tree().selected(), projects);

        // Under a ticked parent a child cannot be unticked on its own.
        clickTick(plans);
        QVERIFY(plans->checked);
        QVERIFY(y2016->checked);

        // Unticking the folder unticks what is loaded below it.
        clickTick(projects);
        QVERIFY(!projects->checked);
        QVERIFY(!plans->checked);
        QVERIFY(!y2016->checked);
        QCOMPARE(statements(), 0);

        // The keyboard's space bar ticks the current node the same way.
        view()->setFocus();
        view()->setCurrentIndex(tree().indexOf(plans));
        QTest::keyClick(view(), Qt::Key_Space);
        QVERIFY(plans->checked);
        QVERIFY(y2016->checked);
        QVERIFY(!projects->checked);

        // A ticked folder clicked again hands its tick to its freshly loaded children.
        clickLabel(plans);
        QVERIFY(node("Fold26") && node("Fold26")->checked);
        QVERIFY(m_errors.isEmpty());
    }

    void theRootNeverKeepsItsTick()
    {
        signInTo(QStringLiteral("Acme"));
        FolderTree::Node *root = tree().node(1);
        clickLabel(root);
        clickLabel(node("Fold7")); // select another node first
        clickTick(root);
        QVERIFY(!root->checked);
        QCOMPARE(tree().selected(), root);
        for (const FolderTree::Node *child : root->children)
            QVERIFY(!child->checked);
        QCOMPARE(view()->model()->data(tree().indexOf(root), Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
        QVERIFY(m_errors.isEmpty());
    }

    void archivePictures()
    {
        signInTo(QStringLiteral("AcmeArchive"));
        FolderTree::Node *root = tree().node(1);
        clickLabel(root);
        QCOMPARE(childTexts(root), (QStringList{QStringLiteral("Archive 2010"), QStringLiteral("Finance"),
                                                QStringLiteral("Legal"), QStringLiteral("Old Branch")}));
        QCOMPARE(childImages(root), (QList<int>{17, 7, 7, 28}));

        // The view draws each node's picture, archive ones from the archive set.
        auto *delegate = qobject_cast<FolderItemDelegate *>(view()->itemDelegate());
        QVERIFY(delegate);
        for (const FolderTree::Node *child : root->children) {
            const QStyleOptionViewItem option = delegate->optionFor(QStyleOptionViewItem(), tree().indexOf(child));
            QVERIFY(option.features & QStyleOptionViewItem::HasDecoration);
            QCOMPARE(option.icon.pixmap(16).toImage(), TreeImages::icon(child->image).pixmap(16).toImage());
            QCOMPARE(TreeImages::isArchive(child->image), child->key == QLatin1String("Fold20") || child->key == QLatin1String("Fold38"));
        }

        // Archive 2010 opens onto archived folders only.
        clickLabel(node("Fold20"));
        QVERIFY(!node("Fold20")->children.empty());
        for (const FolderTree::Node *child : node("Fold20")->children)
            QVERIFY2(TreeImages::isArchive(child->image), qPrintable(child->text));
        QVERIFY(m_errors.isEmpty());
    }

    void imageList()
    {
        QVERIFY(TreeImages::icon(0).isNull());
        QVERIFY(TreeImages::icon(30).isNull());
        QList<QImage> seen;
        for (int i = 1; i <= 29; ++i) {
            const QIcon icon = TreeImages::icon(i);
            QVERIFY(!icon.isNull());
            // Drawn for the screen's own size and for twice that, not scaled up.
            QVERIFY(icon.availableSizes().contains(QSize(16, 16)));
            QVERIFY(icon.availableSizes().contains(QSize(32, 32)));
            const QImage picture = TreeImages::pixmap(i, 16).toImage();
            int opaque = 0;
            for (int y = 0; y < picture.height(); ++y)
                for (int x = 0; x < picture.width(); ++x)
                    opaque += qAlpha(picture.pixel(x, y)) > 128;
            QVERIFY2(opaque > 40, qPrintable(QString::number(i)));
            QVERIFY2(!seen.contains(picture), qPrintable(QStringLiteral("picture %1 repeats another").arg(i)));
            seen << picture;
            QCOMPARE(TreeImages::isArchive(i), i >= 17);
        }
    }
};

QTEST_MAIN(TestTreeWindow)
#include "test_tree_window.moc"
