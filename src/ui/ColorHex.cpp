#include "ui/ColorHex.h"

QColor colorFromHex(const QString& hex)
{
    qsizetype begin = 0;
    qsizetype end = hex.size();
    while (begin < end && !hex.at(begin).isLetterOrNumber())
        ++begin;
    while (end > begin && !hex.at(end - 1).isLetterOrNumber())
        --end;
    QStringView digits = QStringView(hex).mid(begin, end - begin);
    if (digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        digits = digits.mid(2);

    // Reads the longest run of hex digits, like a scanner would; overflow keeps the low bits.
    quint64 value = 0;
    for (const QChar c : digits) {
        const char16_t u = c.unicode();
        const int digit = (u >= u'0' && u <= u'9')   ? u - u'0'
                          : (u >= u'a' && u <= u'f') ? u - u'a' + 10
                          : (u >= u'A' && u <= u'F') ? u - u'A' + 10
                                                     : -1;
        if (digit < 0)
            break;
        value = (value << 4) | quint64(digit);
    }
    return QColor::fromRgbF(float((value >> 16) & 0xFF) / 255.0f, float((value >> 8) & 0xFF) / 255.0f,
                            float(value & 0xFF) / 255.0f, 1.0f);
}
