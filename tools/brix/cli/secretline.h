// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/ssecurestring.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace Brix {

/*!
 * A line that is read byte by byte and holds a password: at most 4096 bytes, in memory that never
 * moves and is wiped.
 */
class SecretLine final
{
public:
    SecretLine();
    ~SecretLine();
    Q_DISABLE_COPY_MOVE(SecretLine)

    //! Returns false when the line has its greatest length.
    [[nodiscard]] bool append(char byte);
    bool isEmpty() const { return m_bytes.isEmpty(); }
    //! The text of the line, without CR and LF at its end. The line is empty afterwards.
    Talverine::Security::SSecureString take();

private:
    QByteArray m_bytes;
};

//! Returns the text of \a local8Bit, which is wiped.
Talverine::Security::SSecureString takeSecret(QByteArray &local8Bit);

//! Overwrites a secret in place and empties the text. A copy that shares its memory keeps it.
void wipe(QString &text);

} // namespace Brix
