// One executable, two faces: with a command (databases, tree, export, demo, --help) it runs
// headless; without one it opens the window.

#include "app/appicon.h"
#include "app/frmsendtofolder.h"
#include "cli/cli.h"
#include "app/fdmsshowerror.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLineEdit>

namespace AppIcon = app::AppIcon;
using app::FrmSendtofolder;
using app::installErrorWindow;

int main(int argc, char **argv)
{
    // Parsed before any window exists: without a display Qt would abort before a word is said.
    if (cli::isCommandLine(argc, argv) || !cli::displayAvailable(argc, argv))
        return cli::runCommandLine(argc, argv);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Parcelwise"));
    QApplication::setOrganizationName(QStringLiteral("zarnivo"));
    QApplication::setApplicationVersion(QStringLiteral("%1.%2.%3")
                                            .arg(PARCELWISE_VERSION_MAJOR)
                                            .arg(PARCELWISE_VERSION_MINOR)
                                            .arg(PARCELWISE_VERSION_PATCH));
    QApplication::setDesktopFileName(QStringLiteral("parcelwise"));
    QApplication::setWindowIcon(AppIcon::icon());

    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Copies folders and documents out of a document repository onto disk."));
    options.addHelpOption();
    options.addVersionOption();
    const QCommandLineOption server(QStringLiteral("server"),
                                    QStringLiteral("Fills the server box (a SQL Server name, or the folder of an embedded server)."),
                                    QStringLiteral("name"));
    options.addOption(server);
    options.process(app);

    // Every handler's failure ends in the error window; its exit step puts the arrow back.
    installErrorWindow();

    FrmSendtofolder window;
    if (options.isSet(server))
        if (auto *box = window.findChild<QLineEdit *>(QStringLiteral("txServerName")))
            box->setText(options.value(server));
    window.show();
    return app.exec();
}
