// SPDX-License-Identifier: MIT
#pragma once

#include <files/readonlydevice.h>

#include <brixlib/database/sdbtext.h>

#include <QtCore/QString>

#include <memory>

namespace Brix {

/*!
 * A database file that is looked at and not touched: nothing is locked, and no files are made
 * beside it, as opening it would.
 *
 * Lives in one thread.
 */
class DatabaseView final
{
public:
    //! \a file has to be one.
    explicit DatabaseView(const QString &file);
    ~DatabaseView();

    /*!
     * Reads the settings and the keys; the settings from "FILE.srec" when the head of the file
     * cannot be read. Gives the database's error; throws Failure when the file cannot be read.
     */
    Talverine::DBError tryOpen();
    //! The same, and throws Failure for each error.
    void open();

    Talverine::SDBText *operator->() { return &m_database; }
    Talverine::SDBText &operator*() { return m_database; }
    bool isHeadFromCopy() const { return m_isHeadFromCopy; }

private:
    Talverine::DBError openWithHead(const QByteArray &head);

    QString m_file;
    std::unique_ptr<ReadOnlyDevice> m_device; // outlives the database
    Talverine::SDBText m_database;
    bool m_isHeadFromCopy = false;
};

} // namespace Brix
