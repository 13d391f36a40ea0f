#include "testsupport.h"

#include "demo/demorepository.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QStringList>

QString writeDemo(const QString &parentDir, QString *error)
{
    const QString dir = QDir(parentDir).filePath(QStringLiteral("demo"));
    if (!writeDemoRepository(dir, error))
        return {};
    return dir;
}

QByteArray sha256OfTree(const QString &dir)
{
    const QDir root(dir);
    QStringList files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << root.relativeFilePath(it.next());
    files.sort();

    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QString &relative : std::as_const(files)) {
        QFile file(root.filePath(relative));
        hash.addData(relative.toUtf8());
        hash.addData(QByteArray(1, '\0'));
        if (!file.open(QIODevice::ReadOnly)) {
            // An unreadable file must not hash like a readable empty one.
            hash.addData(QByteArrayLiteral("<unreadable>"));
            continue;
        }
        hash.addData(QByteArray::number(file.size()) + '\0');
        while (!file.atEnd())
            hash.addData(file.read(1 << 20));
    }
    return hash.result();
}
