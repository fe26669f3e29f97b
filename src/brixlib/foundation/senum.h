// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/flagoperators.h>

#include <brixrt/isenum.h>
#include <brixrt/senumruntimeloader.h>

#include <QtCore/QList>
#include <QtCore/QMultiHash>

#include <initializer_list>
#include <string_view>
#include <type_traits>

namespace Talverine {

namespace Detail {

//! The declared value of a key: `SEnumTag() * E::Key = 4` keeps E::Key and ignores the 4.
template<typename E>
struct SEnumKeyValue
{
    E value;

    template<typename Assigned>
    constexpr SEnumKeyValue operator=(Assigned &&) const
    {
        return *this;
    }
};

struct SEnumTag
{
    template<typename E>
    constexpr SEnumKeyValue<E> operator*(E value) const
    {
        return {value};
    }
};

//! One declared pair; the text still carries what follows the key ("Plain = 1").
template<typename E>
struct SEnumPair
{
    SEnumKeyValue<E> key;
    std::string_view text;
};

//! The key of a declared text: what stands before its "=", or all of it.
inline QString keyName(std::string_view text)
{
    const std::string_view key = text.substr(0, text.find_first_of(" ="));
    return QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
}

} // namespace Detail

/*!
 * Names and values of the enumeration \a E over the integer type \a T: the base of the companion
 * class E_T that the S_ENUM macros declare.
 *
 * A value may have several names; the one declared first is canonical. Const calls may come from
 * any thread once the table is built.
 */
template<typename E, typename T = int>
class SEnumBase : public ISEnum
{
public:
    using Enum = E;
    using Value = T;

    ~SEnumBase() override { SEnumRuntimeLoader::forget(this); }

    bool isFlags() const override { return false; }

    QString toString(const qint64 &value, const QLocale &locale = QLocale()) const override
    {
        if (!fits(value))
            return locale.toString(value);
        const QString name = canonicalName(static_cast<T>(value));
        return name.isNull() ? numberText(static_cast<T>(value), locale) : name;
    }
    QString toString(E value, const QLocale &locale = QLocale()) const
    {
        return toString(static_cast<qint64>(value), locale);
    }

    qint64 fromString(const QString &text, const qint64 &defaultValue,
                      Qt::CaseSensitivity cs = Qt::CaseInsensitive,
                      bool *ok = nullptr) const override
    {
        T value{};
        const bool found = lookUp(text.trimmed(), cs, &value);
        if (ok)
            *ok = found;
        return found ? static_cast<qint64>(value) : defaultValue;
    }
    E fromString(const QString &text, E defaultValue, Qt::CaseSensitivity cs = Qt::CaseInsensitive,
                 bool *ok = nullptr) const
    {
        return static_cast<E>(fromString(text, static_cast<qint64>(defaultValue), cs, ok));
    }

    void insert(qint64 value, const QString &name) override
    {
        if (!fits(value))
            return;
        const T key = static_cast<T>(value);
        if (m_names.contains(key, name))
            return;
        m_names.insert(key, name);
        m_values.append(key);
    }

    //! Every declared value in order of declaration; one with an alias stands there once a name.
    const QList<T> &values() const { return m_values; }
    //! All names of \a value, the canonical one last; empty when it is not declared.
    QList<QString> names(E value) const { return m_names.values(static_cast<T>(value)); }

protected:
    SEnumBase() = default;

    void declare(std::initializer_list<Detail::SEnumPair<E>> pairs)
    {
        for (const auto &pair : pairs)
            SEnumBase::insert(static_cast<qint64>(pair.key.value), Detail::keyName(pair.text));
    }

    //! Whether \a value survives in T; one that is cut would turn into a declared value.
    static constexpr bool fits(qint64 value)
    {
        return static_cast<qint64>(static_cast<T>(value)) == value;
    }

    //! The name declared first, or a null string.
    QString canonicalName(T value) const
    {
        // QMultiHash lists the latest insertion first.
        const QList<QString> names = m_names.values(value);
        return names.isEmpty() ? QString() : names.last();
    }

    static QString numberText(T value, const QLocale &locale)
    {
        if constexpr (sizeof(T) < sizeof(int))
            return locale.toString(static_cast<int>(value));
        else
            return locale.toString(value);
    }

    bool lookUp(const QString &name, Qt::CaseSensitivity cs, T *value) const
    {
        for (auto it = m_names.cbegin(); it != m_names.cend(); ++it) {
            if (it.value().compare(name, cs) == 0) {
                *value = it.key();
                return true;
            }
        }
        return false;
    }

private:
    QMultiHash<T, QString> m_names;
    QList<T> m_values;
};

/*!
 * As SEnumBase, for values that combine as flags.
 *
 * The text of a value without a name of its own lists the declared values it is made of, joined
 * with ", "; a value with an undeclared bit is the number. A text is read part by part between
 * commas: a part that is unknown stands for the default value and leaves ok false.
 */
template<typename E, typename T = int>
class SEnumBaseFlags : public SEnumBase<E, T>
{
    using Base = SEnumBase<E, T>;
    using Bits = std::make_unsigned_t<T>;

public:
    using Base::fromString;
    using Base::toString;

    bool isFlags() const override { return true; }

    QString toString(const qint64 &value, const QLocale &locale = QLocale()) const override
    {
        if (!Base::fits(value))
            return locale.toString(value);
        const T whole = static_cast<T>(value);
        const QString name = Base::canonicalName(whole);
        if (!name.isNull())
            return name;

        QList<QString> texts;
        QList<T> seen;
        Bits collected = 0;
        for (const T declared : Base::values()) {
            const Bits bits = static_cast<Bits>(declared);
            if (bits == 0 || (static_cast<Bits>(whole) & bits) != bits || seen.contains(declared))
                continue;
            seen.append(declared);
            collected |= bits;
            texts.append(Base::toString(static_cast<qint64>(declared), locale));
        }
        if (collected != static_cast<Bits>(whole))
            return Base::numberText(whole, locale);
        return texts.join(QLatin1String(", "));
    }

    qint64 fromString(const QString &text, const qint64 &defaultValue,
                      Qt::CaseSensitivity cs = Qt::CaseInsensitive,
                      bool *ok = nullptr) const override
    {
        Bits bits = 0;
        bool known = true;
        const QList<QString> parts = text.split(QLatin1Char(','));
        for (const QString &part : parts) {
            bool partKnown = false;
            bits |= static_cast<Bits>(Base::fromString(part, defaultValue, cs, &partKnown));
            known = known && partKnown;
        }
        if (ok)
            *ok = known;
        return static_cast<qint64>(static_cast<T>(bits));
    }
};

} // namespace Talverine

// Applies a macro to each of up to 256 keys: every level reads its text four times over.
#define BRIX_ENUM_PARENS ()
#define BRIX_ENUM_EXPAND(...)                                                                      \
    BRIX_ENUM_EXPAND3(BRIX_ENUM_EXPAND3(BRIX_ENUM_EXPAND3(BRIX_ENUM_EXPAND3(__VA_ARGS__))))
#define BRIX_ENUM_EXPAND3(...)                                                                     \
    BRIX_ENUM_EXPAND2(BRIX_ENUM_EXPAND2(BRIX_ENUM_EXPAND2(BRIX_ENUM_EXPAND2(__VA_ARGS__))))
#define BRIX_ENUM_EXPAND2(...)                                                                     \
    BRIX_ENUM_EXPAND1(BRIX_ENUM_EXPAND1(BRIX_ENUM_EXPAND1(BRIX_ENUM_EXPAND1(__VA_ARGS__))))
#define BRIX_ENUM_EXPAND1(...)                                                                     \
    BRIX_ENUM_EXPAND0(BRIX_ENUM_EXPAND0(BRIX_ENUM_EXPAND0(BRIX_ENUM_EXPAND0(__VA_ARGS__))))
#define BRIX_ENUM_EXPAND0(...) __VA_ARGS__
#define BRIX_ENUM_EACH(macro, Name, ...)                                                           \
    __VA_OPT__(BRIX_ENUM_EXPAND(BRIX_ENUM_STEP(macro, Name, __VA_ARGS__)))
#define BRIX_ENUM_STEP(macro, Name, key, ...)                                                      \
    macro(Name, key) __VA_OPT__(BRIX_ENUM_AGAIN BRIX_ENUM_PARENS(macro, Name, __VA_ARGS__))
#define BRIX_ENUM_AGAIN() BRIX_ENUM_STEP
#define BRIX_ENUM_PAIR(Name, key) {Talverine::Detail::SEnumTag() * Name::key, #key},
#define BRIX_ENUM_UNPACK(...) __VA_ARGS__

#define BRIX_ENUM_DECLARE(Name, Type, ...) enum class Name : Type { __VA_ARGS__ };

#define BRIX_ENUM_COMPANION(Name, Type, Base, ...)                                                 \
    class Name##_T final : public Talverine::Base<Name, Type>                                      \
    {                                                                                              \
    public:                                                                                        \
        Name##_T()                                                                                 \
        {                                                                                          \
            declare({BRIX_ENUM_EACH(BRIX_ENUM_PAIR, Name, __VA_ARGS__)});                          \
            Talverine::SEnumRuntimeLoader::loader(Name##_T::name(), this);                         \
        }                                                                                          \
        QString name() const override { return QStringLiteral(#Name); }                            \
        static const Name##_T &instance()                                                          \
        {                                                                                          \
            static const Name##_T table;                                                           \
            return table;                                                                          \
        }                                                                                          \
    };

/*!
 * Declares the scoped enumeration \a Name over int and its companion class Name_T, whose
 * Name_T::instance() is built on first use. The macro stands at the start of a line, the name is
 * its first argument, and the keys follow, all in that line or one a line, so that a line-wise
 * scanner of sources finds them:
 *
 *     S_ENUM(PasswordType,
 *         None = 0,
 *         Plain = 1
 *     )
 *
 * There are at most 256 keys. A key's value is a number or left out; it does not refer to other
 * keys. An alias is a second key with the same number. No semicolon follows any macro of this
 * family.
 */
#define S_ENUM(Name, ...)                                                                          \
    BRIX_ENUM_DECLARE(Name, int, __VA_ARGS__)                                                      \
    BRIX_ENUM_COMPANION(Name, int, SEnumBase, __VA_ARGS__)

/*!
 * As S_ENUM over the integer type \a Type. The keys stand in parentheses of their own, and what
 * closes them starts a line, which ends the scanner's list before the type:
 *
 *     S_ENUM_T(Switch,
 *     (
 *         Off = false,
 *         On = true
 *     ), bool)
 */
#define S_ENUM_T(Name, keys, Type)                                                                 \
    BRIX_ENUM_DECLARE(Name, Type, BRIX_ENUM_UNPACK keys)                                           \
    BRIX_ENUM_COMPANION(Name, Type, SEnumBase, BRIX_ENUM_UNPACK keys)

//! As S_ENUM, for flags: the enumeration gets its bit operators, texts join with ", ".
#define S_ENUM_FLAGS(Name, ...)                                                                    \
    BRIX_ENUM_DECLARE(Name, int, __VA_ARGS__)                                                      \
    BRIX_FLAG_OPERATORS(Name)                                                                      \
    BRIX_ENUM_COMPANION(Name, int, SEnumBaseFlags, __VA_ARGS__)

//! As S_ENUM_T, for flags.
#define S_ENUM_FLAGS_T(Name, keys, Type)                                                           \
    BRIX_ENUM_DECLARE(Name, Type, BRIX_ENUM_UNPACK keys)                                           \
    BRIX_FLAG_OPERATORS(Name)                                                                      \
    BRIX_ENUM_COMPANION(Name, Type, SEnumBaseFlags, BRIX_ENUM_UNPACK keys)

/*!
 * Marks the texts of the declared enumeration \a Name for translation: scanners harvest the keys
 * of marked enumerations only. Stands alone on a line, without a semicolon.
 */
#define S_ENUM_TRANSLATION(Name) static_assert(sizeof(Name) != 0);
