// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QString>

namespace Talverine {

/*!
 * Brings the characters of a text into another order that a seed decides, and back.
 *
 * The database writes the key of a removed record so. It hides a text from a casual look and is no
 * encryption. Characters are UTF-16 units: the halves of a surrogate pair may part.
 *
 * A plain value: const calls may come from any thread.
 */
class BRIXLIB_EXPORT STextScramble
{
public:
    //! With a seed that is the same in all programs.
    STextScramble();

    //! What decides the order; an empty one means the seed of a new object.
    void setSeed(const QString &seed);

    /*!
     * The characters of \a text and \a randomCount random ones (none when that is below 1) in
     * another order. An empty text stays empty.
     */
    QString scramble(const QString &text, int randomCount) const;
    /*!
     * The text that scramble() with the same seed and \a randomCount made \a text of. It always
     * keeps one character, even where \a randomCount is the length of \a text or more.
     */
    QString unScramble(const QString &text, int randomCount) const;

private:
    QString m_seed;
};

} // namespace Talverine
