#pragma once
// Installation settings: the solution version that the installation records, for the error
// report, and the support-information text of the error window.
//
// Where the solution version lives:
//  - Windows: the registry, HKEY_LOCAL_MACHINE\SOFTWARE\Zarnivo\zarnivo\Installation, string value
//    "SolutionVersion" (the 64-bit view first, then the 32-bit view an older installer wrote to).
//  - elsewhere: the system-wide settings file of organisation "Zarnivo", application "zarnivo"
//    in INI format, key "SolutionVersion" in the group "[Installation]"; on Linux that is
//    /etc/xdg/Zarnivo/zarnivo.ini (the first directory of XDG_CONFIG_DIRS). The registry path
//    maps onto it as SOFTWARE\<organisation>\<application>\<group>.

#include <QString>

namespace HuntERR {

constexpr qint32 REG_HKEY_LOCAL_MACHINE = qint32(0x80000002);
inline const QString InstallationKeyPath = QStringLiteral("SOFTWARE\\Zarnivo\\zarnivo\\Installation");
inline const QString SolutionVersionValue = QStringLiteral("SolutionVersion");

// The text of a string value under HKEY_LOCAL_MACHINE (whatever root hKey names), cut at its
// first NUL character; empty text when the key or the value is missing.
QString RegGetStringValue(qint32 hKey, const QString &sPath, const QString &sValue);

// The installed solution version, looked up once and kept; an empty answer is looked up again on
// the next read.
QString prtySolutionVer();
void forgetSolutionVer(); // tests: drop the kept value

// Support information shown beside an error report. Nothing supplies any: reading always yields
// empty text and assigning leaves no trace.
QString prtySupportInfo();
void setPrtySupportInfo(const QString &paramNewValue);

} // namespace HuntERR
