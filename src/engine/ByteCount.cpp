#include "engine/ByteCount.h"

#include <array>
#include <cmath>

QString ByteCount::format(qint64 bytes)
{
    if (bytes == 0)
        return QStringLiteral("Zero KB");
    const double magnitude = std::fabs(static_cast<double>(bytes));
    const QString sign = bytes < 0 ? QStringLiteral("-") : QString();
    if (magnitude < 1000.0)
        return sign + QString::number(std::llabs(bytes)) +
               (magnitude == 1.0 ? QStringLiteral(" byte") : QStringLiteral(" bytes"));

    struct Unit
    {
        const char* name;
        int decimals;
    };
    static constexpr std::array<Unit, 5> kUnits{{{"KB", 0}, {"MB", 1}, {"GB", 2}, {"TB", 2}, {"PB", 2}}};

    double value = magnitude / 1000.0;
    std::size_t unit = 0;
    for (;;) {
        const double scale = std::pow(10.0, kUnits[unit].decimals);
        const double rounded = std::round(value * scale) / scale;
        // 999,999 bytes rounds to 1,000 KB, which reads better as 1 MB.
        if (rounded < 1000.0 || unit + 1 == kUnits.size()) {
            QString number = QString::number(rounded, 'f', kUnits[unit].decimals);
            if (number.contains(u'.')) {
                while (number.endsWith(u'0'))
                    number.chop(1);
                if (number.endsWith(u'.'))
                    number.chop(1);
            }
            return sign + number + u' ' + QLatin1StringView(kUnits[unit].name);
        }
        value /= 1000.0;
        ++unit;
    }
}
