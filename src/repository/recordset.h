#pragma once
// Rows of an executed statement read forwards by field name, as ADO's client-side record sets are.

#include <QSharedDataPointer>
#include <QString>
#include <QStringList>
#include <QVariant>

namespace repo {

// Rows of an executed statement, all fetched (client-side cursor), read forwards.
class RecordSet {
public:
    RecordSet();
    RecordSet(const RecordSet &);
    RecordSet &operator=(const RecordSet &);
    ~RecordSet();

    bool isOpen() const;
    void close();
    int recordCount() const;
    bool eof() const;
    void moveFirst();
    void moveNext();
    // Field of the current row by name, any letter case. Unknown name: ERR_ITEM_NOT_FOUND;
    // no current row: ERR_NO_CURRENT_RECORD.
    QVariant value(const QString &field) const;
    bool isNull(const QString &field) const;
    QString text(const QString &field) const; // "" for null
    QStringList fieldNames() const;
    // Field of the current row by position (null past the end or without a current row).
    QVariant valueAt(int column) const;

    // Used by the connection to fill it.
    void setFields(const QStringList &names);
    void appendRow(QVariantList row);

private:
    struct Data;
    QSharedDataPointer<Data> d;
};

} // namespace repo
