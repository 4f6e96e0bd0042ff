#pragma once

#include <QByteArray>
#include <QString>

namespace klangor {

// A rich text file begins with "{\rtf"; anything else is plain text.
bool isRtf(const QByteArray &bytes);

// The plain text of an RTF document in Windows-1252, with "\n" line ends. Groups that hold no
// text (font table, styles, pictures, ...) are left out, unknown control words ignored. Any
// bytes are read without failing, in one pass; the text is never longer than the bytes.
QString plainTextFromRtf(const QByteArray &rtf);

} // namespace klangor
