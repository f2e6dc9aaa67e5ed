#pragma once

#include <QString>

/**
 * Byte counts as people read file sizes: decimal units (1 KB = 1,000 bytes), "N bytes" below
 * 1,000 ("1 byte"), "Zero KB" for 0, whole kilobytes, megabytes with one decimal and gigabytes
 * and above with two, trailing zeros dropped.
 * @code
 * ByteCount::format(1'234'567); // "1.2 MB"
 * @endcode
 */
class ByteCount final
{
public:
    static QString format(qint64 bytes);
};
