#include "errors/settings.h"

#include "errors/hunterr.h"

#include <QSettings>
#include <QStringList>
#include <QVariant>

namespace HuntERR {

namespace {

QString cachedSolutionVer;

QString textUpToNul(const QVariant &value)
{
    QString text;
    if (value.typeId() == QMetaType::QStringList)
        text = value.toStringList().join(QStringLiteral(", ")); // an unquoted INI value with commas
    else
        text = value.toString();
    const qsizetype nul = text.indexOf(QChar(0));
    if (nul >= 0)
        text.truncate(nul);
    return text;
}

#ifdef Q_OS_WIN
QString readRegistry(const QString &sPath, const QString &sValue)
{
    const QString key = QStringLiteral("HKEY_LOCAL_MACHINE\\") + sPath;
    for (QSettings::Format format : {QSettings::Registry64Format, QSettings::Registry32Format}) {
        QSettings registry(key, format);
        const QVariant value = registry.value(sValue);
        if (value.isValid())
            return textUpToNul(value);
    }
    return {};
}
#else
// SOFTWARE\<organisation>\<application>\<group...> -> the system-scope INI file of that
// organisation and application, key <group>/<value>.
QString readSystemSettings(const QString &sPath, const QString &sValue)
{
    QStringList parts = sPath.split(QLatin1Char('\\'), Qt::SkipEmptyParts);
    if (!parts.isEmpty() && parts.first().compare(QLatin1String("SOFTWARE"), Qt::CaseInsensitive) == 0)
        parts.removeFirst();
    if (parts.size() < 2 || sValue.isEmpty())
        return {};
    const QString organisation = parts.takeFirst();
    const QString application = parts.takeFirst();
    QSettings settings(QSettings::IniFormat, QSettings::SystemScope, organisation, application);
    QString key = parts.join(QLatin1Char('/'));
    key += key.isEmpty() ? sValue : QLatin1Char('/') + sValue;
    return textUpToNul(settings.value(key));
}
#endif

} // namespace

QString RegGetStringValue(qint32 hKey, const QString &sPath, const QString &sValue)
{
    Q_UNUSED(hKey); // the installation writes under HKEY_LOCAL_MACHINE only
    return inner(QStringLiteral("modGlobal.RegGetStringValue(hKey,sPath,sValue)"), [&]() -> QString {
#ifdef Q_OS_WIN
        return readRegistry(sPath, sValue);
#else
        return readSystemSettings(sPath, sValue);
#endif
    });
}

QString prtySolutionVer()
{
    return inner(QStringLiteral("ModPropeties.prtySolutionVer"), []() -> QString {
        if (cachedSolutionVer.trimmed().isEmpty())
            cachedSolutionVer = RegGetStringValue(REG_HKEY_LOCAL_MACHINE, InstallationKeyPath, SolutionVersionValue);
        return cachedSolutionVer;
    });
}

void forgetSolutionVer()
{
    cachedSolutionVer.clear();
}

QString prtySupportInfo()
{
    return inner(QStringLiteral("modGlobal.prtySupportInfo"), []() -> QString { return {}; });
}

void setPrtySupportInfo(const QString &paramNewValue)
{
    inner(QStringLiteral("modGlobal.prtySupportInfo(paramNewValue)"), [&] { Q_UNUSED(paramNewValue); });
}

} // namespace HuntERR
