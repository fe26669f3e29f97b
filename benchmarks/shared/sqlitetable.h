// SPDX-License-Identifier: MIT
// What bench_database compares with: a row for each record, a transaction for each row, nothing
// forced to disk.
#pragma once

#include <QtCore/QByteArray>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <sqlite3.h>

namespace SqliteTable {

//! The columns of a row.
struct Row
{
    QByteArray name, colour, supplier, batch, level, remark;
};

class Statement
{
public:
    Statement(sqlite3 *database, const char *text)
    {
        sqlite3_prepare_v2(database, text, -1, &m_statement, nullptr);
        if (!m_statement)
            fail(database, text);
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Q_DISABLE_COPY_MOVE(Statement)

    void bind(int column, const QByteArray &text)
    {
        sqlite3_bind_text(m_statement, column, text.constData(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
    }
    //! True on a row, false at the end.
    bool step() { return sqlite3_step(m_statement) == SQLITE_ROW; }
    //! The bytes of a column, so that they are looked at.
    int bytes(int column) { return sqlite3_column_bytes(m_statement, column); }
    void reset() { sqlite3_reset(m_statement); }

    [[noreturn]] static void fail(sqlite3 *database, const char *what)
    {
        std::fprintf(stderr, "%s: %s\n", what, sqlite3_errmsg(database));
        std::exit(1);
    }

private:
    sqlite3_stmt *m_statement = nullptr;
};

//! A table with its key and an index on "colour".
class Table
{
public:
    explicit Table(const QByteArray &path)
    {
        if (sqlite3_open(path.constData(), &m_database) != SQLITE_OK)
            Statement::fail(m_database, path.constData());
        run("PRAGMA synchronous=OFF");
        run("CREATE TABLE inks (name TEXT PRIMARY KEY, colour TEXT, supplier TEXT, batch TEXT, "
            "level TEXT, remark TEXT)");
        run("CREATE INDEX colours ON inks (colour)");
        m_insert = std::make_unique<Statement>(m_database,
                                               "INSERT INTO inks VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
        m_select = std::make_unique<Statement>(m_database, "SELECT * FROM inks WHERE name = ?1");
    }
    ~Table()
    {
        m_insert.reset();
        m_select.reset();
        sqlite3_close(m_database);
    }
    Q_DISABLE_COPY_MOVE(Table)

    //! For one statement without parameters.
    void run(const char *statement)
    {
        if (sqlite3_exec(m_database, statement, nullptr, nullptr, nullptr) != SQLITE_OK)
            Statement::fail(m_database, statement);
    }

    void insert(const Row &row)
    {
        m_insert->bind(1, row.name);
        m_insert->bind(2, row.colour);
        m_insert->bind(3, row.supplier);
        m_insert->bind(4, row.batch);
        m_insert->bind(5, row.level);
        m_insert->bind(6, row.remark);
        m_insert->step();
        m_insert->reset();
        if (sqlite3_changes(m_database) != 1)
            Statement::fail(m_database, "insert");
    }

    //! The bytes of the row of a key; 0 when there is none.
    int valueBytes(const QByteArray &name)
    {
        m_select->bind(1, name);
        int bytes = 0;
        if (m_select->step()) {
            for (int column = 0; column < 6; ++column)
                bytes += m_select->bytes(column);
        }
        m_select->reset();
        return bytes;
    }

private:
    sqlite3 *m_database = nullptr;
    std::unique_ptr<Statement> m_insert;
    std::unique_ptr<Statement> m_select;
};

} // namespace SqliteTable
