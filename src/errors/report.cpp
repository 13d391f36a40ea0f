#include "errors/report.h"

#include "errors/settings.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QMetaType>
#include <QObject>
#include <QSequentialIterable>
#include <QStringList>
#include <QSysInfo>

#ifdef PARCELWISE_HAVE_ODBC
#ifdef Q_OS_WIN
#include <windows.h>
#endif
#include <sql.h>
#include <sqlext.h>
#endif

namespace HuntERR {

namespace {

const QChar Backspace(8);
const QString CrLf = QStringLiteral("\r\n");
constexpr int HeldBackLength = 40;
constexpr int CallStackWidth = 100;

#ifdef PARCELWISE_HAVE_ODBC
// Asks the driver manager itself; no data source is needed for either question.
QString odbcDriverManagerVersion()
{
    SQLHENV env = SQL_NULL_HENV;
    SQLHDBC dbc = SQL_NULL_HDBC;
    QString version;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env)))
        return version;
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    if (SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc))) {
        for (SQLUSMALLINT infoType : {SQLUSMALLINT(SQL_DM_VER), SQLUSMALLINT(SQL_ODBC_VER)}) {
            SQLCHAR buffer[128] = {};
            SQLSMALLINT length = 0;
            if (SQL_SUCCEEDED(SQLGetInfo(dbc, infoType, buffer, SQLSMALLINT(sizeof buffer - 1), &length))) {
                version = QString::fromLatin1(reinterpret_cast<const char *>(buffer)).trimmed();
                if (!version.isEmpty())
                    break;
            }
        }
        SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    }
    SQLFreeHandle(SQL_HANDLE_ENV, env);
    return version;
}
#endif

bool isSequence(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
    case QMetaType::QByteArrayList:
    case QMetaType::QByteArray: // bytes are an array, not text
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return true;
    default:
        break;
    }
    return QMetaType::canConvert(value.metaType(), QMetaType::fromType<QSequentialIterable>());
}

QStringList splitNames(const QString &names)
{
    QStringList list = names.split(QLatin1Char(','));
    for (QString &name : list)
        name = name.trimmed();
    return list;
}

} // namespace

const QString ReportTemplate = QStringLiteral(
    "  Error Description: %Descr% %nl%  Error Number: %ErrNum% = &H%ErrHex% = vbObjectError %ErrNumRel1% "
    "= ERRMAP_APP_FIRST %ErrNumRel2% %ErrStd%%nl%  Date-Time: '%Time%'  %nl%  %nl%  Computer Name: "
    "'%Comp%' %nl%  Solution Version: '%SolVer%' %nl%  Application Version: '%Ver%'  %nl%  ADO Version: "
    "'%ADOVersion%' %nl%  Source: %Source% %nl%  Method: %MethodName% %nl%  %nl%");

QString substitutePlaceholders(const QString &templ, const Placeholders &values)
{
    QString text = templ;
    text.replace(QLatin1Char('%'), Backspace);
    for (const auto &[name, value] : values)
        text.replace(Backspace + name + Backspace, value);
    text.replace(Backspace, QLatin1Char('%'));
    return text;
}

QString dataAccessVersion()
{
    static const QString version = [] {
        QString found;
#ifdef PARCELWISE_HAVE_ODBC
        try {
            found = odbcDriverManagerVersion();
        } catch (...) {
            found.clear();
        }
#endif
        return found.isEmpty() ? QStringLiteral("?") : found;
    }();
    return version;
}

QString applicationVersion()
{
#if defined(PARCELWISE_VERSION_MAJOR) && defined(PARCELWISE_VERSION_MINOR) && defined(PARCELWISE_VERSION_PATCH)
    return QStringLiteral("%1.%2.%3")
        .arg(PARCELWISE_VERSION_MAJOR)
        .arg(PARCELWISE_VERSION_MINOR)
        .arg(PARCELWISE_VERSION_PATCH);
#else
    return QStringLiteral("6.0.0");
#endif
}

QString applicationName()
{
    const QString name = QCoreApplication::instance() ? QCoreApplication::applicationName() : QString();
    return name.isEmpty() ? QStringLiteral("Parcelwise") : name;
}

QString signedForm(qint64 value)
{
    if (value >= 0)
        return QStringLiteral("+ ") + QString::number(value);
    return QStringLiteral("- ") + QString::number(-value);
}

QString buildReportHead(const ErrInfo &err, const QString &methodName)
{
    QString solutionVersion;
    try {
        solutionVersion = prtySolutionVer();
    } catch (...) {
        solutionVersion.clear(); // a report names what it can; a missing version is left blank
    }
    const qint64 number = err.number;
    const Placeholders values = {
        {QStringLiteral("nl"), CrLf},
        {QStringLiteral("MethodName"), methodName},
        {QStringLiteral("Comp"), QSysInfo::machineHostName()},
        {QStringLiteral("Time"), QDateTime::currentDateTime().toString(QStringLiteral("MM/dd/yy HH:mm:ss"))},
        {QStringLiteral("App"), applicationName()},
        {QStringLiteral("Ver"), applicationVersion()},
        {QStringLiteral("SolVer"), solutionVersion},
        {QStringLiteral("ADOVersion"), dataAccessVersion()},
        {QStringLiteral("ErrNum"), QString::number(err.number)},
        {QStringLiteral("ErrHex"), QString::number(quint32(err.number), 16).toUpper()},
        {QStringLiteral("ErrNumRel1"), signedForm(number - vbObjectError)},
        {QStringLiteral("ErrNumRel2"), signedForm(number - ERRMAP_APP_FIRST)},
        {QStringLiteral("ErrStd"), err.number == ERR_GENERAL ? QStringLiteral("= ERR_GENERAL") : QString()},
        {QStringLiteral("Source"), err.source},
        {QStringLiteral("Descr"), err.description},
    };
    return substitutePlaceholders(ReportTemplate, values);
}

QString connectionStateWords(int state)
{
    if (state == 0)
        return QStringLiteral("adStateClosed");
    QString words = QStringLiteral("adStateOpen");
    if (state & 2)
        words += QStringLiteral(" + adStateConnecting");
    if (state & 4)
        words += QStringLiteral(" + adStateExecuting");
    if (state & 8)
        words += QStringLiteral(" + adStateFetching");
    return words;
}

QString adoInfoBlock(DbObject *connection)
{
    if (!connection)
        return {};
    QString block = QStringLiteral("  ADO Info: ") + CrLf;
    try {
        block += QStringLiteral("    ADO Version:   ") + dataAccessVersion() + CrLf;
        block += QStringLiteral("    DbObject:      ") + connection->typeName() + CrLf;
        block += QStringLiteral("    Conn. State:   ") + connectionStateWords(connection->state()) + CrLf;
        block += QStringLiteral("   ") + CrLf + QStringLiteral("   ") + CrLf;
        const QStringList errors = connection->errorDescriptions();
        for (const QString &description : errors)
            block += QStringLiteral("    Error:         ") + description + CrLf;
    } catch (...) {
        // whatever the connection could tell stays in the block; the rest is left out
    }
    return block;
}

QString formatValue(const QVariant &value)
{
    try {
        if (!value.isValid())
            return QStringLiteral("{Empty}");
        if (value.isNull())
            return QStringLiteral("{Null}");
        switch (value.typeId()) {
        case QMetaType::QString:
        case QMetaType::QChar:
            return QLatin1Char('\'') + value.toString() + QLatin1Char('\'');
        case QMetaType::Bool:
            return value.toBool() ? QStringLiteral("True") : QStringLiteral("False");
        default:
            break;
        }
        if (isSequence(value))
            return QStringLiteral("{Array}");
        const QMetaType type = value.metaType();
        if (type.flags().testFlag(QMetaType::PointerToQObject)) {
            const QObject *object = value.value<QObject *>();
            if (!object)
                return QStringLiteral("{Null}");
            return QLatin1Char('{') + QString::fromLatin1(object->metaObject()->className()) + QLatin1Char('}');
        }
        if (type.flags().testFlag(QMetaType::IsPointer)) {
            QString name = QString::fromLatin1(type.name());
            name.remove(QLatin1Char('*'));
            return QLatin1Char('{') + name.trimmed() + QLatin1Char('}');
        }
        if (value.canConvert<QString>()) {
            const QString text = value.toString();
            if (!text.isNull())
                return text;
        }
    } catch (...) {
    }
    return QStringLiteral("{?}");
}

QString namedValueList(const NamedValues &values, QString *heldBack)
{
    if (values.names.isEmpty() && values.values.isEmpty())
        return {};
    const QStringList names = splitNames(values.names);
    QStringList pairs;
    for (int i = 0; i < names.size(); ++i) {
        const QString text = i < values.values.size() ? formatValue(values.values.at(i)) : QStringLiteral("{Empty}");
        if (text.contains(CrLf) || text.size() > HeldBackLength) {
            pairs << names.at(i) + QStringLiteral("={Text}");
            if (heldBack)
                *heldBack += QStringLiteral("    Value Of ") + names.at(i) + QStringLiteral(":") + CrLf + text + CrLf;
        } else {
            pairs << names.at(i) + QLatin1Char('=') + text;
        }
    }
    return pairs.join(QStringLiteral(", "));
}

QString callStackEntry(const QString &methodName, qint32 line, const NamedValues &params, const NamedValues &env)
{
    QString heldBack;
    QString head = QStringLiteral("  Call Stack: ") + methodName + QLatin1Char('(') + namedValueList(params, &heldBack)
        + QLatin1Char(')');
    if (line != 0)
        head += QStringLiteral("  at Line ") + QString::number(line);
    head += QLatin1Char(' ');
    if (head.size() < CallStackWidth)
        head += QString(CallStackWidth - head.size(), QLatin1Char('-'));

    QString entry = head + CrLf + QStringLiteral("   ") + CrLf + heldBack;
    if (!env.isEmpty()) {
        QString envHeldBack;
        entry += QStringLiteral("    Env: ") + namedValueList(env, &envHeldBack) + CrLf + envHeldBack;
    }
    return entry;
}

QString transactionNote(DbObject *connection, const QString &method)
{
    if (!connection)
        return {};
    if (method != QLatin1String("RollbackTrans"))
        return QStringLiteral("Unknown method");
    try {
        if (connection->state() == 0)
            return QStringLiteral("Could not call RollbackTrans: Connection is closed ");
        connection->rollbackTrans();
        return QStringLiteral("Attempt to call RollbackTrans succeeded");
    } catch (const std::exception &e) {
        QString description;
        if (const auto *error = dynamic_cast<const Error *>(&e))
            description = error->description();
        else
            description = QString::fromLocal8Bit(e.what());
        return QStringLiteral("Attempt to call RollbackTrans failed with error '") + description + QLatin1Char('\'');
    } catch (...) {
        return QStringLiteral("Attempt to call RollbackTrans failed with error 'Unknown error'");
    }
}

} // namespace HuntERR
