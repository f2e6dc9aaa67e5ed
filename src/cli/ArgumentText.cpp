#include "cli/ArgumentText.h"

#include <algorithm>

namespace {

constexpr char16_t kKeptByteBase = 0xDC80;

bool isKeptByte(QChar c)
{
    return c.unicode() >= kKeptByteBase && c.unicode() <= kKeptByteBase + 0x7F;
}

/// Length of the valid UTF-8 sequence at `at`, or 0 when it is not one.
int sequenceLength(const QByteArray& bytes, qsizetype at)
{
    const auto byte = [&](qsizetype i) { return static_cast<unsigned char>(bytes.at(i)); };
    const unsigned char lead = byte(at);
    if (lead < 0x80)
        return 1;
    int length = 0;
    char32_t minimum = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        minimum = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        minimum = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        minimum = 0x10000;
    } else {
        return 0;
    }
    if (at + length > bytes.size())
        return 0;
    char32_t code = lead & (0x7F >> length);
    for (int i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (byte(at + i) & 0x3F);
    }
    // Overlong forms, UTF-16 surrogates and code points past U+10FFFF are not valid UTF-8.
    if (code < minimum || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
        return 0;
    return length;
}

} // namespace

QString ArgumentText::decoded(const QByteArray& bytes)
{
    QString text;
    text.reserve(bytes.size());
    for (qsizetype at = 0; at < bytes.size();) {
        const int length = sequenceLength(bytes, at);
        if (length == 0) {
            // Only bytes 0x80 to 0xFF can be invalid, so the kept range is U+DC80 to U+DCFF.
            text += QChar(char16_t(kKeptByteBase + (static_cast<unsigned char>(bytes.at(at)) - 0x80)));
            ++at;
            continue;
        }
        text += QString::fromUtf8(bytes.constData() + at, length);
        at += length;
    }
    return text;
}

bool ArgumentText::isValid(const QString& text)
{
    return std::none_of(text.cbegin(), text.cend(), isKeptByte);
}

QString ArgumentText::printable(const QString& text)
{
    QString out;
    for (const QChar c : text) {
        if (isKeptByte(c))
            out += QStringLiteral("\\x") + QString::number(c.unicode() - kKeptByteBase + 0x80, 16).toUpper();
        else
            out += c;
    }
    return out;
}
