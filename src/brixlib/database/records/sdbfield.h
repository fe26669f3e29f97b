// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>

#include <QtCore/QLocale>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Talverine {

/*!
 * One named value of a record, and its text form, which is what stands in a database file.
 *
 *     SDBField("count", 12).toString();                 // "count = 12"
 *     SDBField("tags", QStringList{"a", "b"}).toString(); // "tags.0 = a" CR LF "tags.1 = b"
 *
 * Reading cuts a name at its first "." and at "=", and a line at a line feed, so a name must hold
 * none of these and a value no line feed; blanks around either are lost. A name must not begin with
 * "#" either: a file takes the line for a comment. What is read back is text, whatever the type was
 * that was written: QString for one line, QVariantList of QString for several. A list within a list
 * is written as one text, so it is not read back as it was.
 *
 * A plain value: const calls may come from any thread.
 */
class BRIXLIB_EXPORT SDBField : public Interfaces::IFormattable
{
public:
    //! No name, invalid value: what look-ups give when there is nothing.
    static const SDBField empty;

    SDBField();
    SDBField(const QString &key, const QVariant &value);
    SDBField(const SDBField &other);
    SDBField(SDBField &&other) noexcept;
    ~SDBField() override;
    SDBField &operator=(const SDBField &other);
    SDBField &operator=(SDBField &&other) noexcept;

    //! Compares the names as they are, upper and lower case apart, and the values as QVariant does.
    friend bool operator==(const SDBField &a, const SDBField &b)
    {
        return a.m_key == b.m_key && a.m_value == b.m_value;
    }
    friend bool operator!=(const SDBField &a, const SDBField &b) { return !(a == b); }

    QString key() const { return m_key; }
    void setKey(const QString &key);
    QVariant value() const { return m_value; }
    void setValue(const QVariant &value);

    //! Whether the field has no name.
    bool isNull() const { return m_key.isEmpty(); }
    //! Whether the field has no name or a null value. An empty text is not null.
    bool isEmpty() const { return m_key.isEmpty() || m_value.isNull(); }
    QMetaType::Type type() const;
    /*!
     * Whether the field has a name and its value is a QVariantList, QStringList, QByteArray or
     * QBitArray.
     */
    bool isArray() const;
    /*!
     * The values of the lines that the field has as text: the elements of an array (the bytes of a
     * QByteArray as char; none of a QBitArray), the value itself otherwise, nothing for a null one.
     * Without a name nothing is an array.
     */
    QList<QVariant> valueList() const;
    /*!
     * Makes the value a QVariantList of valueList() and \a value behind it. What is there is not
     * copied when it is such a list already.
     */
    void append(const QVariant &value);

    using Interfaces::IFormattable::toString;
    /*!
     * A line for each of valueList(), joined with CR LF, without one at the end; empty when there
     * is no value. Each line is the value's text by SConvert::toString(): for the \a format "F", in
     * either case, alone, else as "key = text", or "key.i = text" with i from 0 when there are
     * several.
     */
    QString toString(const QString &format, const QLocale &locale) const override;
    //! With the format "F" when \a valueOnly, else with an empty format.
    QString toString(bool valueOnly, const QLocale &locale = QLocale()) const;
    //! A literal would become the bool of the form above; write u"F"_s.
    template<typename Char>
    QString toString(const Char *format, const QLocale &locale = QLocale()) const = delete;

    /*!
     * The field that the lines of \a text stand for, which may end in LF or CR LF. Lines without
     * "=" are skipped. The name is that of the last line; a number behind a dot is not looked at,
     * the order of the lines alone is that of an array. One value comes as it is, several as a
     * QVariantList; without any the field is empty. The field of a line such as "= 5" has a value
     * and no name.
     */
    static SDBField fromString(const QString &text, const QString &format = QString(),
                               const QLocale &locale = QLocale());

private:
    QString m_key;
    QVariant m_value;
};

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SDBField)
