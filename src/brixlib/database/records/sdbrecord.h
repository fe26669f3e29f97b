// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/database/records/sdbfield.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QLocale>
#include <QtCore/QMetaType>
#include <QtCore/QString>

namespace Talverine {

/*!
 * A record of a database: fields in an order, each found by its name.
 *
 * The order of the fields is that of their first insertion unless move() changes it. It is the
 * order on disk, and the signature depends on it as on every text. Names that begin with "_" are
 * the database's own; the static names below are the ones it writes.
 *
 *     SDBRecord record;
 *     record.insert("name", "cyan");
 *     record.insert("level", 12);
 *     record.updateSignature();
 *     record.checkSignature(); // true
 *
 * A plain value that shares its data until it is changed: const calls may come from any thread.
 */
class BRIXLIB_EXPORT SDBRecord
{
public:
    // The names of the fields that the database writes, in lower case. Code that runs before main()
    // calls the functions: the data may not have its value yet.
    static const QString DateTimeKey;  //!< "_datetime", UTC date and time of the insertion
    static const QString UniqueIncKey; //!< "_uniqueinckey", a number that grows with each insertion
    static const QString SignatureKey; //!< "_signature"
    static const QString CultureKey;   //!< "_cultureinfo", the locale that the texts are written in
    static const QString OwnerKey;     //!< "_recowner", the user who inserted the record
    static const QString &dateTimeKey();
    static const QString &uniqueIncKey();
    static const QString &signatureKey();
    static const QString &cultureKey();
    static const QString &ownerKey();

    SDBRecord();
    SDBRecord(const SDBRecord &other);
    SDBRecord(SDBRecord &&other) noexcept;
    ~SDBRecord();
    SDBRecord &operator=(const SDBRecord &other);
    SDBRecord &operator=(SDBRecord &&other) noexcept;

    //! Equal when names, their order, values and seed are.
    bool operator==(const SDBRecord &other) const;
    bool operator!=(const SDBRecord &other) const { return !(*this == other); }

    int count() const { return static_cast<int>(m_names.size()); }
    bool isEmpty() const { return m_names.isEmpty(); }
    //! Removes all fields and the seed of the signature.
    void clear();

    bool contains(const QString &name) const;
    //! By name only.
    bool contains(const SDBField &field) const;

    /*!
     * The field at a position or of a name; SDBField::empty when there is none, and nothing is
     * added. The reference is good until the record changes; that to an empty field leads nowhere,
     * and what is written to it is gone with the next look-up that finds nothing. Don't change the
     * name of a field through it.
     */
    SDBField at(int index) const;
    SDBField &at(int index);
    SDBField field(const QString &name) const;
    SDBField &field(const QString &name);
    //! The value of a field; invalid when there is none.
    QVariant value(const QString &name) const;
    //! All fields in their order.
    QList<SDBField> fields() const;
    //! All names in the order of the fields.
    const QList<QString> &names() const { return m_names; }

    //! Appends the field, or puts it in the place of that of its name. False without a name.
    bool insert(const QString &name, const QVariant &value);
    bool insert(const SDBField &field);
    //! Inserts each field of \a other in its order, up to the first one without a name, with false.
    bool insert(const SDBRecord &other);
    //! The same as insert().
    bool replace(const QString &name, const QVariant &value);
    bool replace(const SDBField &field);
    /*!
     * What one more line of a name means: a new name is inserted with \a value alone, a known one
     * gets it by SDBField::append(). False without a name.
     */
    bool append(const QString &name, const QVariant &value);
    //! True when the field was there.
    bool remove(const QString &name);
    bool remove(const SDBField &field);
    /*!
     * Takes the name of \a field to the position \a index of the order, or to the nearest that
     * there is. False when \a field is empty or its name isn't there.
     */
    bool move(const SDBField &field, int index);

    /*!
     * The locale that the values are written in, without group separators: that of the field
     * CultureKey; \a fallback, as it is, when there is none.
     */
    QLocale locale(const QLocale &fallback) const;

    /*!
     * Text that the signature begins with, empty at first. It is no secret key: who knows it can
     * sign.
     */
    void setSignatureSeed(const QString &seed);
    //! The signature that the record holds, or an empty text; it is not computed.
    QString signature() const;
    /*!
     * Whether the record holds a signature that fits its fields: of 40 or fewer characters the old
     * one, by SHA-1, else the chain by SHA-256 of docs/formats/record-signature.md.
     */
    bool checkSignature() const;
    //! Signs the record anew, always by the chain; the field is appended when there is none.
    bool updateSignature();

private:
    QString signature(const QLocale &values) const;
    QString legacyGenerator(const QLocale &values) const;
    QString signatureGenerator(const QLocale &values) const;
    template<typename Take>
    void takeSignedTexts(const QLocale &values, const Take &take) const;

    qsizetype positionOf(const QString &name) const;
    void notePositions(qsizetype first, qsizetype end);
    const SDBField &search(const QString &name) const;
    SDBField &fieldAt(qsizetype position);

    QList<SDBField> m_fields;
    QList<QString> m_names;                //!< of m_fields
    QHash<QString, qsizetype> m_positions; //!< of all names once they are many, else empty
    QString m_seed;
    SDBField m_spare; //!< what look-ups of a record that can change refer to when they find nothing
};

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SDBRecord)
