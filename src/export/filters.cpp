// The run's filters: folders left out by --exclude's globs and documents by --since's date, each
// recorded as skipped where it would have gone.

#include "export/exporter.h"

namespace exporting {

QRegularExpression globExpression(const QString &glob)
{
    QString pattern;
    for (qsizetype i = 0; i < glob.size(); ++i) {
        const QChar c = glob.at(i);
        const qsizetype close = c == QLatin1Char('[') ? glob.indexOf(QLatin1Char(']'), i + 2) : -1;
        if (c == QLatin1Char('*')) {
            pattern += QStringLiteral(".*");
        } else if (c == QLatin1Char('?')) {
            pattern += QLatin1Char('.');
        } else if (close > 0) { // a set; "[!...]" is its complement; a "[" without "]" is itself
            QString set = glob.mid(i + 1, close - i - 1);
            const bool negated = set.startsWith(QLatin1Char('!'));
            if (negated)
                set.remove(0, 1);
            set.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('^'), QStringLiteral("\\^"));
            pattern += (negated ? QStringLiteral("[^") : QStringLiteral("[")) + set + QLatin1Char(']');
            i = close;
        } else {
            pattern += QRegularExpression::escape(QString(c));
        }
    }
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern), QRegularExpression::CaseInsensitiveOption);
}

QString repositoryPathOf(const tree::FolderTree::Node *node)
{
    QStringList names;
    for (; node && node->parent; node = node->parent)
        names.prepend(node->tag);
    return names.join(QLatin1Char('/'));
}

QString Exporter::exclusion(const QString &repoPath) const
{
    if (m_excluded.isEmpty())
        return {};
    // The folder itself, or one above it that the walk never met (a ticked folder's ancestors).
    for (qsizetype end = repoPath.size(); end > 0; end = repoPath.lastIndexOf(QLatin1Char('/'), end - 1)) {
        const QString path = repoPath.left(end);
        for (const auto &[glob, expression] : m_excluded) {
            if (expression.match(path).hasMatch())
                return glob;
        }
    }
    return {};
}

void Exporter::leaveOut(ExportRecord::Kind kind, qint64 id, const QString &name, const QString &path, const QString &why)
{
    ++m_result.skipped;
    record(ExportRecord::filtered(kind, id, name, why), path);
}

} // namespace exporting
