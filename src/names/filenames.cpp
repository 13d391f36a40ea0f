#include "names/filenames.h"

#include <QStringList>

namespace names {

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

// The characters no file name may hold on the repository's home platform; each becomes a blank.
void blankForbidden(QString &name)
{
    static const char forbidden[] = {'\\', '/', ':', '*', '?', '"', '<', '>', '|'};
    for (char c : forbidden)
        name.replace(QLatin1Char(c), QLatin1Char(' '));
}

} // namespace

QString trimBlanks(const QString &s)
{
    qsizetype begin = 0;
    qsizetype end = s.size();
    while (begin < end && s.at(begin) == u' ')
        ++begin;
    while (end > begin && s.at(end - 1) == u' ')
        --end;
    return s.mid(begin, end - begin);
}

QChar pathSeparator()
{
#ifdef Q_OS_WIN
    return QLatin1Char('\\');
#else
    return QLatin1Char('/');
#endif
}

QString RemoveSpChr(QString &strFileName)
{
    blankForbidden(strFileName);
    return trimBlanks(strFileName);
}

QString cleanDocumentTitle(const QString &description)
{
    QString name = description;
    blankForbidden(name);
    return name; // leading and trailing blanks belong to the title
}

QString idTag(qint64 id)
{
    return QStringLiteral("[") + QString::number(id) + QStringLiteral("]");
}

bool isNoName(const QString &cleaned)
{
    return cleaned.isEmpty() || cleaned == QLatin1String(".") || cleaned == QLatin1String("..");
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
    // Blanks only (an empty title would leave a bare ".ext", a hidden file easily lost), or a
    // name that means this directory or its parent.
    if (trimBlanks(cleanedTitle).isEmpty() || isNoName(cleanedTitle))
        return false;
    const QString fileName = cleanedTitle + ext;
    // A stored extension is not cleaned: it may hold a separator, which would make a path.
    if (fileName.contains(QChar(0)) || fileName.contains(QLatin1Char('/')))
        return false;
#ifdef Q_OS_WIN
    // NTFS counts UTF-16 units; the shell strips trailing blanks and points, so such a name
    // would silently become another file.
    if (fileName.size() > 255)
        return false;
    if (fileName.endsWith(QLatin1Char(' ')) || fileName.endsWith(QLatin1Char('.')))
        return false;
    for (QChar c : fileName) {
        if (c.unicode() < 32 || QStringView(u"\\:*?\"<>|").contains(c))
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

QString fileSystemKey(const QString &name)
{
#if defined(Q_OS_WIN) || defined(Q_OS_DARWIN)
    return name.toCaseFolded();
#else
    return name;
#endif
}

} // namespace names
