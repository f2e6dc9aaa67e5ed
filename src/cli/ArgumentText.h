#pragma once

#include <QByteArray>
#include <QString>

/**
 * File names as the kernel hands them over: bytes, usually but not always UTF-8.
 *
 * A byte that is not part of valid UTF-8 is kept as the lone surrogate U+DC80 + byte, which no
 * valid UTF-8 decodes to, so an undecodable name can never be mistaken for another file's name
 * and its bytes can still be shown.
 * @code
 * const QString name = ArgumentText::decoded(argv[1]);
 * if (!ArgumentText::isValid(name))
 *     CliOutput::error(ArgumentText::printable(name) + " is not valid UTF-8");
 * @endcode
 */
class ArgumentText final
{
public:
    static QString decoded(const QByteArray& bytes);
    /// Whether the text came from valid UTF-8 (holds no kept byte).
    static bool isValid(const QString& text);
    /// The text with every kept byte written as \xNN.
    static QString printable(const QString& text);
};
