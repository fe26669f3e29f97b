// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Brix {

/*!
 * Where the tool writes: results on stdout, notes and errors on stderr.
 *
 * A terminal, and stderr in any case, is sent no control characters that a file name or a peer
 * brought along: printableText() escapes them.
 *
 * Thread: used in the main thread only.
 */
class Output final
{
public:
    //! Results as one JSON object a line instead of text for people.
    bool json = false;
    //! No notes; results and errors stay.
    bool quiet = false;
    //! Results without escapes, also on a terminal.
    bool raw = false;

    //! One line of a result. Callers ask \a json first which form is wanted.
    void line(const QString &text) const;
    //! One result as a JSON object in one line, as printableJson() writes it.
    void object(const QJsonObject &object) const;
    //! \a text, or \a object with --json.
    void result(const QString &text, const QJsonObject &object) const;
    //! A result that is no text, without a line end of its own.
    void bytesAsTheyAre(const QByteArray &bytes) const;
    //! A result that may be no text: as it is, or for a terminal as printableUtf8() in one line.
    void foreignBytes(const QByteArray &bytes) const;
    //! Rows of cells in aligned columns. Nothing for no rows.
    void table(QList<QStringList> rows) const;
    //! Something worth knowing that is neither a result nor an error.
    void note(const QString &text) const;
    //! A line of a log that was asked for, whether notes are wanted or not.
    void diagnostic(const QString &text) const;
    //! What failed, and why.
    void error(const QString &text) const;

    //! "1.5 MiB".
    static QString bytes(qint64 count);

private:
    bool isEscaped() const;
};

} // namespace Brix
