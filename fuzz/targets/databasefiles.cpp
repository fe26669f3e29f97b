// SPDX-License-Identifier: MIT
// A database with the files beside it, as a program opens, reads and changes it. An input begins
// with a byte of what there is (DatabasePart), a byte of the number of the key field's name for the
// good heads, and the sizes of the database and the copy of its head in 16 bits each; then come
// database, copy and index.
#include "../fuzztarget.h"
#include "../inputforms.h"
#include "../plainrecords.h"
#include "../scratchfolder.h"
#include "../targets.h"

#include <brixlib/database/databasehead_p.h>
#include <brixlib/database/records/ssignature.h>
#include <brixlib/database/sdbtext.h>

#include <brixrt/scrc32.h>

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QTemporaryDir>
#include <QtCore/QtEndian>

#include <algorithm>
#include <iterator>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace Fuzz {

namespace {

const auto kUser = u"ada"_s;
const auto kPassword = u"secret"_s;
const auto kNewKey = u"a new key"_s;
constexpr qsizetype kRecordsLookedAt = 4;
constexpr qsizetype kFieldsLookedAt = 4;

using Records = QList<PlainRecord>;

struct Files
{
    QByteArray database;
    std::optional<QByteArray> copy; // of the head
    std::optional<QByteArray> index;
};

qsizetype takeSize(Input *input)
{
    const int high = input->byte();
    return 256 * high + input->byte();
}

QByteArray goodHead(const QString &keyName)
{
    DatabaseHead head;
    head.key = keyName;
    head.owner = kUser;
    head.passwd = SSignature::generate(kPassword, QCryptographicHash::Sha1);
    head.grants = DBAuthGrants::ReadOnly;
    head.culture = QLocale(QLocale::English, QLocale::UnitedStates);
    QBuffer buffer;
    require(buffer.open(QIODevice::WriteOnly) && head.write(&buffer), "a head can't be written");
    return buffer.data();
}

QByteArray indexHead(const QByteArray &database)
{
    const QByteArray hash = QByteArray::number(SCrc32::hash(database), 16);
    QByteArray size(4, Qt::Uninitialized);
    qToBigEndian(static_cast<quint32>(hash.size()), size.data());
    return "IDX4" + size + hash;
}

Files filesOf(const QByteArray &bytes)
{
    Input input(bytes);
    const quint8 parts = input.byte();
    const auto has = [parts](DatabasePart part) { return (parts & quint8(part)) != 0; };
    const QStringView keyName = kKeyNamesOfInputs[input.byte() % std::size(kKeyNamesOfInputs)];
    const QByteArray head = goodHead(keyName.toString());
    const qsizetype databaseBytes = takeSize(&input);
    const qsizetype copyBytes = takeSize(&input);

    Files files;
    files.database = has(DatabasePart::Head) ? head : QByteArray();
    files.database.append(input.bytes(databaseBytes));
    const QByteArray copy = input.bytes(copyBytes).toByteArray();
    if (has(DatabasePart::Copy))
        files.copy = copy;
    if (has(DatabasePart::GoodCopy))
        files.copy = head;
    if (has(DatabasePart::IndexHead))
        files.index = indexHead(files.database) + input.rest();
    else if (has(DatabasePart::Index))
        files.index = input.rest();
    return files;
}

// The files on the disk.
class Place
{
public:
    Place()
        : m_folder(scratchPlace() + u"/brixfuzz-XXXXXX"_s)
        , m_path(m_folder.filePath(u"inks.db"_s))
    {
        require(m_folder.isValid(), "cannot make a folder");
    }

    const QString &path() const { return m_path; }

    void put(const Files &files) const
    {
        write(QString(), files.database);
        write(u".srec"_s, files.copy);
        write(u".idx"_s, files.index);
    }

    QByteArray databaseBytes() const
    {
        QFile file(m_path);
        require(file.open(QIODevice::ReadOnly), "the database is gone");
        return file.readAll();
    }

private:
    // Removes the file where there is nothing to write.
    void write(const QString &suffix, const std::optional<QByteArray> &bytes) const
    {
        QFile file(m_path + suffix);
        file.remove();
        require(!bytes || (file.open(QIODevice::WriteOnly) && file.write(*bytes) == bytes->size()),
                "cannot write a file");
    }

    QTemporaryDir m_folder;
    QString m_path;
};

// An empty key is none, and the first record of a key counts.
QMap<QString, SDBRecord> living(const Records &records)
{
    QMap<QString, SDBRecord> result;
    for (const PlainRecord &record : records) {
        if (!record.key.isEmpty() && !result.contains(record.key))
            result.insert(record.key, record.record);
    }
    return result;
}

QList<SDBRecord> walk(SDBText &database)
{
    QList<SDBRecord> records;
    SDBRecord record;
    for (bool more = database.first(record); more;) {
        require(records.size() < database.count(), "a walk does not end");
        records.append(record);
        more =
            database.next(record.field(database.key()).toString(true, database.culture()), record);
    }
    return records;
}

void requireContents(SDBText &database, const Records &records)
{
    const QMap<QString, SDBRecord> expected = living(records);
    require(database.count() == expected.size(), "there are other keys than in the file");
    if (database.grants() != DBAuthGrants::None)
        require(walk(database) == expected.values(), "records are other ones than in the file");
}

// Each record is found by the texts of its fields.
void requireSearchable(SDBText &database, const Records &records)
{
    if (database.grants() == DBAuthGrants::None)
        return;
    const QList<SDBRecord> list = living(records).values();
    for (const SDBRecord &record : list.first(std::min(list.size(), kRecordsLookedAt))) {
        const QList<SDBField> fields = record.fields();
        for (const SDBField &field : fields.first(std::min(fields.size(), kFieldsLookedAt))) {
            if (field.toString(true, database.culture()).isEmpty())
                continue;
            QList<SDBRecord> found;
            require(database.addFieldIndex(field.key()) && database.searchField(field, found) &&
                        found.contains(record),
                    "a record is not found by a field");
        }
    }
}

// What a program does with a database whose contents it does not know.
void use(SDBText &database)
{
    for (const SDBRecord &record : walk(database)) {
        record.checkSignature();
        const QList<SDBField> fields = record.fields();
        for (const SDBField &field : fields.first(std::min(fields.size(), kFieldsLookedAt))) {
            QList<SDBRecord> found;
            database.values(field.key());
            database.searchField(field, found);
        }
    }
    SDBRecord record;
    database.last(record);
    for (const QString &name : database.fieldsIndexed())
        database.values(name);
    for (const SDBField &key : database.values(QString()))
        database.value(key.value().toString(), record);
}

// False where nothing ends the head but the file. The first record that is inserted ends it, which
// a record within the head takes for a field of its own.
bool hasHeadEnd(const QByteArray &database)
{
    return plainRecords(database, SDBText::Key).size() != 1;
}

// One change after the other, each compared with the file.
class Changes
{
public:
    Changes(const Place &place, SDBText &database)
        : m_place(place)
        , m_database(database)
        , m_bytes(place.databaseBytes())
        , m_records(plainRecords(m_bytes, database.key()))
    {
    }

    void insert()
    {
        SDBRecord record;
        record.insert(m_database.key(), kNewKey);
        record.insert(u"text"_s, u"bl\u00E5"_s);
        const bool isInserted = m_database.insert(record);
        Records before = m_records;
        const QByteArray start = m_bytes;
        look();
        require(m_bytes.startsWith(start) && isInserted == (m_bytes.size() > start.size()),
                "an insertion changes what was there");
        if (isInserted) {
            require(m_records.size() > before.size(), "a record was not inserted");
            require(m_records.last().record.checkSignature(), "a new record has a wrong signature");
            before.append(m_records.last());
        }
        require(m_records == before || !hasHeadEnd(start), "an insertion changes records");
    }

    void remove(const QString &key)
    {
        const bool isRemoved = m_database.remove(key);
        Records before = m_records;
        const qsizetype size = m_bytes.size();
        look();
        require(m_bytes.size() == size, "a removal changes the size");
        if (isRemoved) {
            const auto removed =
                std::find_if(before.begin(), before.end(),
                             [&](const PlainRecord &record) { return record.key == key; });
            require(removed != before.end(), "a record was removed that was not there");
            before.erase(removed);
        }
        require(m_records == before, "a removal changes other records");
    }

    void purge()
    {
        const bool isPurged = m_database.purge();
        const QList<SDBRecord> before = living(m_records).values();
        look();
        // A head that is data itself comes anew.
        if (!isPurged || m_database.key() == SDBText::Key ||
            std::any_of(before.begin(), before.end(), hasMarkedName))
            return;
        QList<SDBRecord> after;
        for (const PlainRecord &record : m_records)
            after.append(record.record);
        require(after == before, "records change when a database is purged");
    }

    const Records &records() const { return m_records; }

private:
    void look()
    {
        m_bytes = m_place.databaseBytes();
        m_records = plainRecords(m_bytes, m_database.key());
    }

    const Place &m_place;
    SDBText &m_database;
    QByteArray m_bytes;
    Records m_records;
};

void change(const Place &place, SDBText &database)
{
    Changes changes(place, database);
    changes.insert();
    // The first ones in the file, and one key twice.
    for (qsizetype i = 0; i < kRecordsLookedAt && !changes.records().isEmpty(); ++i)
        changes.remove(changes.records().at(i / 2 % changes.records().size()).key);
    changes.purge();
}

// Whether it opens. An index that fits may lie, so that nothing is known of the contents.
bool readFiles(const Place &place, const QByteArray &bytes, bool isIndexed)
{
    SDBText database;
    database.authenticate(kUser, kPassword);
    const bool isOpen = database.open(place.path());
    require(isOpen == (database.error() == DBError::NoError), "an error is not told");
    if (isOpen) {
        use(database);
        const Records records = plainRecords(bytes, database.key());
        if (!isIndexed) {
            requireContents(database, records);
            requireSearchable(database, records);
        }
        require(database.reindex() || database.grants() == DBAuthGrants::None, "no new index");
        if (!isIndexed || database.grants() != DBAuthGrants::None)
            requireContents(database, records);
    }
    database.close();
    require(place.databaseBytes() == bytes, "reading changes a database");
    return isOpen;
}

// Whether part of the head is a record as well, and can be removed like any.
bool isHeadData(const QByteArray &database, const QString &keyName)
{
    const Records heads = plainRecords(database, SDBText::Key);
    const qsizetype end = heads.size() > 1 ? heads.at(1).position : database.size();
    return keyName == SDBText::Key ||
           (!heads.isEmpty() && !plainRecords(database.first(end), keyName).isEmpty());
}

// With whatever closing has left beside the database.
void changeFiles(const Place &place)
{
    SDBText database;
    database.authenticate(kUser, kPassword);
    require(database.open(place.path()), "a database that was read does not open");
    // What is written would not be read.
    if (isMarked(database.key()))
        return;
    const bool mayLoseHead = isHeadData(place.databaseBytes(), database.key());
    change(place, database);
    database.close();
    const QByteArray bytes = place.databaseBytes();
    const bool isOpen = database.open(place.path());
    require(isOpen || mayLoseHead, "a database that was changed does not open");
    if (isOpen)
        requireContents(database, plainRecords(bytes, database.key()));
}

} // namespace

bool databaseFiles(const QByteArray &input)
{
    static const Place place;
    const Files files = filesOf(input);
    place.put(files);
    if (!readFiles(place, files.database, files.index.has_value()))
        return false;
    changeFiles(place);
    return true;
}

} // namespace Fuzz
