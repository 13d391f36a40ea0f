#pragma once
// Small but well-formed document contents, produced by code so a generated repository holds real
// files of the kinds a document repository is full of. Every function is deterministic: the same
// arguments always give the same bytes.

#include <QByteArray>
#include <QString>

namespace demo {

// CRC-32 as used by PNG and ZIP (reflected polynomial 0xEDB88320).
quint32 crc32(const QByteArray &data, quint32 crc = 0);

// Plain text, CRLF line ends, UTF-8.
QByteArray textFile(const QString &heading, const QString &body);
// A one-page PDF 1.4 showing the given ASCII text, with a correct cross-reference table.
QByteArray pdfFile(const QString &text);
// An 8-bit RGB PNG of width x height pixels, a gradient tinted by seed; a non-empty comment is
// stored in a tEXt chunk (Latin-1).
QByteArray pngFile(int width, int height, quint32 seed, const QString &comment = {});
// A comma-separated table with a header row and `rows` numbered rows.
QByteArray csvFile(const QString &caption, int rows);
// Rich text with one paragraph.
QByteArray rtfFile(const QString &text);
// A minimal Word document: a ZIP archive (stored entries) with content types, relationships and
// one paragraph.
QByteArray docxFile(const QString &text);

} // namespace demo
