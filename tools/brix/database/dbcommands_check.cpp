// SPDX-License-Identifier: MIT
// brix db check: tells what is wrong with a database file, and where.
#include "databaselock.h"
#include "databasescan.h"
#include "databaseview.h"
#include "dbcommands.h"

#include <QtCore/QFileInfo>
#include <QtCore/QHash>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBError;
using Talverine::SDBRecord;
using Talverine::SDBText;

namespace {

struct Problem
{
    qint64 line = 0;
    QString kind; // for programs: stays as it is
    QString text;
    QString key;
};

struct Findings
{
    QList<Problem> problems;
    qint64 records = 0;
    qint64 deleted = 0;

    void add(qint64 line, const QString &kind, const QString &text, const QString &key = {})
    {
        problems.append({line, kind, text, key});
    }
};

bool isSound(const ScannedRecord &record)
{
    return record.isDeleted || record.record.checkSignature();
}

// Behind the last record, or a beginning of one that has no key yet. A sound record needs no line
// end to be whole.
bool isTornBehind(const DatabaseScan &scan, const ScannedRecord &last)
{
    if (last.line > 0 && !isSound(last))
        return !scan.isLineWhole() || last.record.signature().isEmpty();
    return !scan.isLineWhole() && scan.lastName().isEmpty();
}

void addSignatureProblem(const ScannedRecord &record, Findings *findings)
{
    if (record.record.signature().isEmpty())
        findings->add(record.line, u"unsigned"_s, u"\"%1\" has no signature"_s.arg(record.key),
                      record.key);
    else
        findings->add(record.line, u"signature"_s,
                      u"the signature of \"%1\" does not match"_s.arg(record.key), record.key);
}

void addKeyProblem(const ScannedRecord &record, QHash<QString, qint64> *lines, Findings *findings)
{
    if (record.key.isEmpty()) {
        findings->add(record.line, u"keyless"_s, u"the key is empty; nothing finds this record"_s);
        return;
    }
    const auto other = lines->constFind(record.key);
    if (other == lines->cend())
        lines->insert(record.key, record.line);
    else
        findings->add(record.line, u"double"_s,
                      u"\"%1\" is the key of the record at line %2 too, which hides this one"_s.arg(
                          record.key, QString::number(*other)),
                      record.key);
}

void checkRecord(const ScannedRecord &record, QHash<QString, qint64> *lines, Findings *findings)
{
    if (record.isDeleted)
        return;
    addKeyProblem(record, lines, findings);
    if (!isSound(record))
        addSignatureProblem(record, findings);
}

void checkRecords(const QString &file, const QString &keyName, Findings *findings)
{
    DatabaseScan scan(file, keyName);
    QHash<QString, qint64> lines;
    ScannedRecord last;
    ScannedRecord record;
    while (scan.next(&record)) {
        throwIfInterrupted();
        if (last.line > 0)
            checkRecord(last, &lines, findings);
        ++(record.isDeleted ? findings->deleted : findings->records);
        last = std::move(record);
    }
    const bool isTorn = isTornBehind(scan, last);
    // What is wrong with a record that lacks its end is just that.
    if (last.line > 0 && (!isTorn || isSound(last)))
        checkRecord(last, &lines, findings);
    if (isTorn)
        findings->add(scan.line(), u"torn"_s,
                      u"the file ends in the middle of a record that was being written"_s,
                      isSound(last) ? QString() : last.key);
}

qint64 lineOfHead(const QString &file)
{
    DatabaseScan scan(file, SDBText::Key);
    ScannedRecord head;
    scan.next(&head);
    return head.line;
}

Findings check(const DatabaseOptions &options, const DatabaseLogin &login)
{
    OpenDatabase::requireFile(options.file);
    const DatabaseLock lock(QFileInfo(options.file).canonicalFilePath());
    // Where none can be made, as on a medium that is not writable, nobody writes.
    if (lock.holder())
        lock.require();
    Findings findings;
    DatabaseView view(options.file);
    const DBError error = view.tryOpen();
    if (error == DBError::SignError) {
        findings.add(view.isHeadFromCopy() ? 1 : lineOfHead(options.file), u"head"_s,
                     view.isHeadFromCopy()
                         ? u"the head is destroyed, and the signature of its copy does not match"_s
                         : u"the signature of the head does not match"_s);
        return findings;
    }
    if (error != DBError::NoError)
        throw OpenDatabase::failure(options.file, error);
    OpenDatabase::authenticate(&*view, options.file, login);
    OpenDatabase::requireReading(&*view, options.file);
    if (view.isHeadFromCopy())
        findings.add(1, u"head-from-copy"_s, u"the head is destroyed; its copy stands in for it"_s);
    checkRecords(options.file, view->key(), &findings);
    return findings;
}

void write(const Output &output, const QString &file, const Findings &findings)
{
    for (const Problem &problem : findings.problems)
        output.result(u"%1:%2: %3"_s.arg(file, QString::number(problem.line), problem.text),
                      {{u"line"_s, problem.line},
                       {u"problem"_s, problem.kind},
                       {u"key"_s, problem.key},
                       {u"text"_s, problem.text}});
    if (output.quiet && !output.json)
        return;
    output.result(
        u"%1, %2 removed, %3"_s.arg(counted(findings.records, u"record"_s, u"records"_s),
                                    QString::number(findings.deleted),
                                    counted(findings.problems.size(), u"problem"_s, u"problems"_s)),
        {{u"records"_s, findings.records},
         {u"deleted"_s, findings.deleted},
         {u"problems"_s, findings.problems.size()}});
}

ExitCode checkFile(const Output &output, const DatabaseOptions &options)
{
    const DatabaseLogin login = loginOf(options.user);
    Findings findings;
    runDatabaseWork([&] { findings = check(options, login); });
    write(output, options.file, findings);
    return findings.problems.isEmpty() ? ExitCode::Done : ExitCode::Refused;
}

} // namespace

void addDbCheckCommand(Command *family)
{
    addCommand<DatabaseOptions>(family, "check",
                                "Tell which records are damaged, and at which lines",
                                "brix db check inks.db", declareDatabase, checkFile);
}

} // namespace Brix
