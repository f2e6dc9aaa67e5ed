#pragma once

#include <QColor>
#include <QString>

/**
 * A colour from a hexadecimal string such as "#1A1A1A" or "FFD60A": characters that are not
 * letters or digits are trimmed from both ends, the leading hexadecimal digits are read (an
 * optional "0x" allowed) and bits 16-23, 8-15 and 0-7 give red, green and blue, fully opaque.
 * Anything unreadable gives black.
 */
QColor colorFromHex(const QString& hex);
