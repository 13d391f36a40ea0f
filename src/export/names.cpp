// File and directory names: cleaning titles and folder names, the stored extension, and the
// one place that knows which names the file system refuses.

#include "export/exporter.h"

#include <QStringList>

namespace {

#ifdef Q_OS_WIN
bool isReservedDeviceName(const QString &fileName)
{
    // The device names are reserved with any extension and with trailing blanks or points.
    QString stem = fileName.section(QLatin1Char('.'), 0, 0);
    while (stem.endsWith(QLatin1Char(' ')))
        stem.chop(1);
    stem = stem.toUpper();
    static const QStringList fixed = {QStringLiteral("CON"), QStringLiteral("PRN"), QStringLiteral("AUX"),
                                      QStringLiteral("NUL"), QStringLiteral("CONIN$"), QStringLiteral("CONOUT$")};
    if (fixed.contains(stem))
        return true;
    if (stem.size() == 4 && (stem.startsWith(QLatin1String("COM")) || stem.startsWith(QLatin1String("LPT"))))
        return stem.at(3) >= QLatin1Char('1') && stem.at(3) <= QLatin1Char('9');
    return false;
}
#endif

} // namespace

QString RemoveSpChr(QString &strFileName)
{
    static const char forbidden[] = {'\\', '/', ':', '*', '?', '"', '<', '>', '|'};
    for (char c : forbidden)
        strFileName.replace(QLatin1Char(c), QLatin1Char(' '));
    return trimBlanks(strFileName);
}

QString cleanDocumentTitle(const QString &description)
{
    QString name = description;
    static const char forbidden[] = {':', '\\', '/', '*', '?', '"', '<', '>', '|'};
    for (char c : forbidden)
        name.replace(QLatin1Char(c), QLatin1Char(' '));
    return name; // leading and trailing blanks belong to the title
}

QString GetFileExtension(const QString &pFileName)
{
    const QString name = trimBlanks(pFileName);
    const qsizetype point = name.lastIndexOf(QLatin1Char('.'));
    if (point < 0)
        return {};
    return name.mid(point);
}

bool titleCanBeFileName(const QString &cleanedTitle, const QString &ext)
{
    if (trimBlanks(cleanedTitle).isEmpty())
        return false;
    if (cleanedTitle == QLatin1String(".") || cleanedTitle == QLatin1String(".."))
        return false;
    const QString fileName = cleanedTitle + ext;
    if (fileName.contains(QChar(0)))
        return false;
#ifdef Q_OS_WIN
    // NTFS counts UTF-16 units; the shell strips trailing blanks and points, so such a name
    // would silently become another file.
    if (fileName.size() > 255)
        return false;
    if (fileName.endsWith(QLatin1Char(' ')) || fileName.endsWith(QLatin1Char('.')))
        return false;
    for (QChar c : fileName) {
        if (c.unicode() < 32)
            return false;
    }
    if (isReservedDeviceName(fileName))
        return false;
#else
    if (fileName.toLocal8Bit().size() > 255)
        return false;
#endif
    return true;
}
