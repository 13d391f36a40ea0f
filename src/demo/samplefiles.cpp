#include "demo/samplefiles.h"

#include <QList>
#include <QtEndian>

#include <array>

namespace demo {

namespace {

const std::array<quint32, 256> &crcTable()
{
    static const std::array<quint32, 256> table = [] {
        std::array<quint32, 256> t{};
        for (quint32 n = 0; n < 256; ++n) {
            quint32 c = n;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    return table;
}

void appendBig32(QByteArray &out, quint32 v)
{
    char b[4];
    qToBigEndian(v, b);
    out.append(b, 4);
}

void appendLittle16(QByteArray &out, quint16 v)
{
    char b[2];
    qToLittleEndian(v, b);
    out.append(b, 2);
}

void appendLittle32(QByteArray &out, quint32 v)
{
    char b[4];
    qToLittleEndian(v, b);
    out.append(b, 4);
}

void appendPngChunk(QByteArray &out, const char type[4], const QByteArray &data)
{
    appendBig32(out, quint32(data.size()));
    QByteArray typed(type, 4);
    typed += data;
    out += typed;
    appendBig32(out, crc32(typed));
}

// Only printable ASCII survives in a PDF literal string written this simply.
QByteArray pdfString(const QString &text)
{
    QByteArray out;
    for (QChar c : text) {
        const ushort u = c.unicode();
        if (u == '\\' || u == '(' || u == ')') {
            out += '\\';
            out += char(u);
        } else if (u >= 0x20 && u < 0x7f) {
            out += char(u);
        } else {
            out += '?';
        }
    }
    return out;
}

QByteArray rtfEscape(const QString &text)
{
    QByteArray out;
    for (QChar c : text) {
        const ushort u = c.unicode();
        if (u == '\\' || u == '{' || u == '}') {
            out += '\\';
            out += char(u);
        } else if (u >= 0x20 && u < 0x7f) {
            out += char(u);
        } else {
            // \uN with a signed 16-bit N, then the fallback character for old readers.
            out += "\\u" + QByteArray::number(qint16(u)) + '?';
        }
    }
    return out;
}

QByteArray xmlEscape(const QString &text)
{
    QString t = text;
    t.replace(QLatin1Char('&'), QStringLiteral("&amp;"));
    t.replace(QLatin1Char('<'), QStringLiteral("&lt;"));
    t.replace(QLatin1Char('>'), QStringLiteral("&gt;"));
    return t.toUtf8();
}

} // namespace

quint32 crc32(const QByteArray &data, quint32 crc)
{
    const auto &table = crcTable();
    crc = ~crc;
    for (char ch : data)
        crc = table[(crc ^ quint8(ch)) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

QByteArray textFile(const QString &heading, const QString &body)
{
    QString text = heading + QStringLiteral("\r\n");
    text += QString(heading.size(), QLatin1Char('=')) + QStringLiteral("\r\n\r\n");
    text += body;
    if (!text.endsWith(QStringLiteral("\r\n")))
        text += QStringLiteral("\r\n");
    return text.toUtf8();
}

QByteArray pdfFile(const QString &text)
{
    const QByteArray content = "BT /F1 18 Tf 72 720 Td (" + pdfString(text) + ") Tj ET\n";
    const QList<QByteArray> objects = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 4 0 R "
        "/Resources << /Font << /F1 5 0 R >> >> >>",
        "<< /Length " + QByteArray::number(content.size()) + " >>\nstream\n" + content + "endstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
    };
    // The second line's high bytes tell transfer programs that the file is binary.
    QByteArray pdf = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    QList<qsizetype> offsets;
    for (int i = 0; i < objects.size(); ++i) {
        offsets << pdf.size();
        pdf += QByteArray::number(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const qsizetype xref = pdf.size();
    pdf += "xref\n0 " + QByteArray::number(objects.size() + 1) + "\n";
    pdf += "0000000000 65535 f \n";
    for (qsizetype offset : offsets)
        pdf += QByteArray::number(offset).rightJustified(10, '0') + " 00000 n \n";
    pdf += "trailer\n<< /Size " + QByteArray::number(objects.size() + 1) + " /Root 1 0 R >>\n";
    pdf += "startxref\n" + QByteArray::number(xref) + "\n%%EOF\n";
    return pdf;
}

QByteArray pngFile(int width, int height, quint32 seed, const QString &comment)
{
    width = qBound(1, width, 4096);
    height = qBound(1, height, 4096);
    QByteArray raw;
    raw.reserve(height * (1 + width * 3));
    for (int y = 0; y < height; ++y) {
        raw += char(0); // filter type None
        for (int x = 0; x < width; ++x) {
            raw += char((x * 255 / width + seed) & 0xFF);
            raw += char((y * 255 / height + (seed >> 8)) & 0xFF);
            raw += char(((x + y) * 4 + (seed >> 16)) & 0xFF);
        }
    }
    QByteArray ihdr;
    appendBig32(ihdr, quint32(width));
    appendBig32(ihdr, quint32(height));
    ihdr += char(8); // bit depth
    ihdr += char(2); // colour type RGB
    ihdr += char(0); // deflate
    ihdr += char(0); // adaptive filtering
    ihdr += char(0); // no interlace

    QByteArray png("\x89PNG\r\n\x1a\n", 8);
    appendPngChunk(png, "IHDR", ihdr);
    if (!comment.isEmpty())
        appendPngChunk(png, "tEXt", QByteArray("Comment") + '\0' + comment.toLatin1());
    // qCompress gives a zlib stream behind a 4-byte length prefix: exactly what IDAT holds.
    appendPngChunk(png, "IDAT", qCompress(raw, 9).mid(4));
    appendPngChunk(png, "IEND", QByteArray());
    return png;
}

QByteArray csvFile(const QString &caption, int rows)
{
    QByteArray csv = "\"" + caption.toUtf8().replace('"', "\"\"") + "\",Quantity,Amount\r\n";
    for (int i = 1; i <= rows; ++i) {
        csv += "Item " + QByteArray::number(i) + "," + QByteArray::number(i * 3 % 17 + 1) + ","
            + QByteArray::number(i * 1234 % 9973) + "." + QByteArray::number(10 + i * 7 % 90) + "\r\n";
    }
    return csv;
}

QByteArray rtfFile(const QString &text)
{
    return "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\froman Times New Roman;}}\r\n"
           "\\f0\\fs24 "
        + rtfEscape(text) + "\\par\r\n}\r\n";
}

namespace {

struct ZipEntry {
    QByteArray name;
    QByteArray data;
};

// A zip archive of stored (uncompressed) entries, as a word processor's document package is.
QByteArray storedZip(const QList<ZipEntry> &entries)
{
    // A fixed time stamp (1 January 2016, 00:00) keeps the archive identical from run to run.
    const quint16 dosTime = 0;
    const quint16 dosDate = quint16(((2016 - 1980) << 9) | (1 << 5) | 1);
    // The fields the local header and the central directory share, from "version needed" on.
    const auto common = [&](QByteArray &out, const ZipEntry &e, quint32 crc) {
        appendLittle16(out, 20); // version needed
        appendLittle16(out, 0);  // flags
        appendLittle16(out, 0);  // stored
        appendLittle16(out, dosTime);
        appendLittle16(out, dosDate);
        appendLittle32(out, crc);
        appendLittle32(out, quint32(e.data.size()));
        appendLittle32(out, quint32(e.data.size()));
        appendLittle16(out, quint16(e.name.size()));
        appendLittle16(out, 0); // extra field length
    };

    QByteArray zip;
    QByteArray central;
    for (const ZipEntry &e : entries) {
        const quint32 offset = quint32(zip.size());
        const quint32 crc = crc32(e.data);
        appendLittle32(zip, 0x04034b50);
        common(zip, e, crc);
        zip += e.name;
        zip += e.data;

        appendLittle32(central, 0x02014b50);
        appendLittle16(central, 20); // version made by
        common(central, e, crc);
        appendLittle16(central, 0); // comment
        appendLittle16(central, 0); // disk number
        appendLittle16(central, 0); // internal attributes
        appendLittle32(central, 0); // external attributes
        appendLittle32(central, offset);
        central += e.name;
    }
    const quint32 centralOffset = quint32(zip.size());
    zip += central;
    appendLittle32(zip, 0x06054b50);
    appendLittle16(zip, 0);
    appendLittle16(zip, 0);
    appendLittle16(zip, quint16(entries.size()));
    appendLittle16(zip, quint16(entries.size()));
    appendLittle32(zip, quint32(central.size()));
    appendLittle32(zip, centralOffset);
    appendLittle16(zip, 0); // comment length
    return zip;
}

} // namespace

QByteArray docxFile(const QString &text)
{
    const QByteArray xmlHead = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\r\n";
    return storedZip({
        {"[Content_Types].xml",
         xmlHead
             + "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
               "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
               "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
               "<Override PartName=\"/word/document.xml\" ContentType=\"application/"
               "vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml\"/></Types>"},
        {"_rels/.rels",
         xmlHead
             + "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
               "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/"
               "relationships/officeDocument\" Target=\"word/document.xml\"/></Relationships>"},
        {"word/document.xml",
         xmlHead
             + "<w:document xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\">"
               "<w:body><w:p><w:r><w:t>"
             + xmlEscape(text) + "</w:t></w:r></w:p></w:body></w:document>"},
    });
}

} // namespace demo
