// SPDX-License-Identifier: MIT
#include <brixlib/database/records/sdbrecord.h>

#include "signaturechain_p.h"
#include <brixlib/database/records/dbrecordspecialfield.h>
#include <brixlib/foundation/outofmemory_p.h>

#include <brixrt/sconvert.h>
#include <brixrt/slocale.h>

#include <algorithm>
#include <utility>

namespace Talverine {

namespace {

// Signatures of as many characters and more are those of the chain; SHA-1 has 40.
constexpr qsizetype kShortestChainSignature = 41;
// Among so few names, comparing them takes less time than a hash.
constexpr qsizetype kFewNames = 24;

QString keyOf(DBRecordSpecialField field)
{
    return DBRecordSpecialField_T::instance().toString(field, QLocale::c()).toLower();
}

const QLocale &signatureFallback()
{
    static const QLocale locale = SLocale(QStringLiteral("en-US"), QLocale::OmitGroupSeparator);
    return locale;
}

} // namespace

const QString &SDBRecord::dateTimeKey()
{
    static const QString key = keyOf(DBRecordSpecialField::_DateTime);
    return key;
}

const QString &SDBRecord::uniqueIncKey()
{
    static const QString key = keyOf(DBRecordSpecialField::_UniqueIncKey);
    return key;
}

const QString &SDBRecord::signatureKey()
{
    static const QString key = keyOf(DBRecordSpecialField::_Signature);
    return key;
}

const QString &SDBRecord::cultureKey()
{
    static const QString key = keyOf(DBRecordSpecialField::_CultureInfo);
    return key;
}

const QString &SDBRecord::ownerKey()
{
    static const QString key = keyOf(DBRecordSpecialField::_RecOwner);
    return key;
}

const QString SDBRecord::DateTimeKey = dateTimeKey();
const QString SDBRecord::UniqueIncKey = uniqueIncKey();
const QString SDBRecord::SignatureKey = signatureKey();
const QString SDBRecord::CultureKey = cultureKey();
const QString SDBRecord::OwnerKey = ownerKey();

SDBRecord::SDBRecord() = default;
SDBRecord::SDBRecord(const SDBRecord &other) = default;
SDBRecord::SDBRecord(SDBRecord &&other) noexcept = default;
SDBRecord::~SDBRecord() = default;
SDBRecord &SDBRecord::operator=(const SDBRecord &other) = default;
SDBRecord &SDBRecord::operator=(SDBRecord &&other) noexcept = default;

bool SDBRecord::operator==(const SDBRecord &other) const
{
    return this == &other ||
           (m_names == other.m_names && m_seed == other.m_seed && m_fields == other.m_fields);
}

void SDBRecord::clear()
{
    m_fields.clear();
    m_names.clear();
    m_positions.clear();
    m_seed.clear();
}

bool SDBRecord::contains(const QString &name) const
{
    return positionOf(name) >= 0;
}

bool SDBRecord::contains(const SDBField &field) const
{
    return contains(field.key());
}

SDBField SDBRecord::at(int index) const
{
    return m_fields.value(index);
}

SDBField &SDBRecord::at(int index)
{
    return fieldAt(index);
}

SDBField SDBRecord::field(const QString &name) const
{
    return search(name);
}

SDBField &SDBRecord::field(const QString &name)
{
    return fieldAt(positionOf(name));
}

QVariant SDBRecord::value(const QString &name) const
{
    return search(name).value();
}

QList<SDBField> SDBRecord::fields() const
{
    return m_fields;
}

bool SDBRecord::insert(const QString &name, const QVariant &value)
{
    return insert(SDBField(name, value));
}

bool SDBRecord::insert(const SDBField &field)
{
    const QString name = field.key();
    if (name.isEmpty())
        return false;
    const qsizetype position = positionOf(name);
    if (position >= 0) {
        m_fields[position] = field;
        return true;
    }
    m_fields.append(field);
    m_names.append(name);
    notePositions(m_names.size() - 1, m_names.size());
    return true;
}

bool SDBRecord::insert(const SDBRecord &other)
{
    const QList<SDBField> fields = other.fields();
    return std::all_of(fields.begin(), fields.end(),
                       [this](const SDBField &field) { return insert(field); });
}

bool SDBRecord::replace(const QString &name, const QVariant &value)
{
    return insert(name, value);
}

bool SDBRecord::replace(const SDBField &field)
{
    return insert(field);
}

bool SDBRecord::append(const QString &name, const QVariant &value)
{
    const qsizetype position = positionOf(name);
    if (position < 0)
        return insert(name, value);
    m_fields[position].append(value);
    return true;
}

bool SDBRecord::remove(const QString &name)
{
    const qsizetype position = positionOf(name);
    if (position < 0)
        return false;
    // The names are the last to change, since the caller's may be one of them.
    m_positions.remove(name);
    m_fields.removeAt(position);
    m_names.removeAt(position);
    notePositions(position, m_names.size());
    return true;
}

bool SDBRecord::remove(const SDBField &field)
{
    return remove(field.key());
}

bool SDBRecord::move(const SDBField &field, int index)
{
    if (field.isEmpty())
        return false;
    const qsizetype from = positionOf(field.key());
    if (from < 0)
        return false;
    const auto to = std::clamp<qsizetype>(index, 0, m_names.size() - 1);
    m_fields.move(from, to);
    m_names.move(from, to);
    notePositions(std::min(from, to), std::max(from, to) + 1);
    return true;
}

QLocale SDBRecord::locale(const QLocale &fallback) const
{
    const SDBField &culture = search(cultureKey());
    if (culture.isEmpty())
        return fallback;
    return SLocale(SConvert::toString(culture.value()), QLocale::OmitGroupSeparator);
}

void SDBRecord::setSignatureSeed(const QString &seed)
{
    m_seed = seed;
}

QString SDBRecord::signature() const
{
    return signature(locale(signatureFallback()));
}

bool SDBRecord::checkSignature() const
{
    const QLocale values = locale(signatureFallback());
    const QString stored = signature(values);
    if (stored.isEmpty())
        return false;
    const bool isLegacy = stored.size() < kShortestChainSignature;
    return orOutOfMemory(false, [&] {
        return stored == (isLegacy ? legacyGenerator(values) : signatureGenerator(values));
    });
}

bool SDBRecord::updateSignature()
{
    return orOutOfMemory(false, [this] {
        return insert(signatureKey(), signatureGenerator(locale(signatureFallback())));
    });
}

QString SDBRecord::signature(const QLocale &values) const
{
    const SDBField &stored = search(signatureKey());
    return stored.isEmpty() ? QString() : stored.toString(true, values);
}

QString SDBRecord::legacyGenerator(const QLocale &values) const
{
    LegacySignature signature(m_seed);
    takeSignedTexts(values, [&](QStringView text) { signature.add(text); });
    return signature.result();
}

QString SDBRecord::signatureGenerator(const QLocale &values) const
{
    SignatureChain chain(m_seed);
    takeSignedTexts(values, [&](QStringView text) { chain.add(text); });
    return chain.result();
}

// The text of each value that is signed, trimmed as a reader will get it, in order.
template<typename Take>
void SDBRecord::takeSignedTexts(const QLocale &values, const Take &take) const
{
    const auto takeText = [&](const QVariant &value) {
        const QString text = SConvert::toString(value, values);
        take(QStringView(text).trimmed());
    };
    const auto takeElement = [&](const QVariant &element) {
        if (element.userType() != QMetaType::QVariantList)
            return takeText(element);
        const QList<QVariant> inner = element.toList();
        std::for_each(inner.begin(), inner.end(), takeText);
    };
    for (qsizetype i = 0; i < m_fields.size(); ++i) {
        const SDBField &field = m_fields.at(i);
        if (m_names.at(i) == signatureKey() || field.isEmpty())
            continue;
        if (!field.isArray()) {
            takeText(field.value());
            continue;
        }
        const QList<QVariant> elements = field.valueList();
        std::for_each(elements.begin(), elements.end(), takeElement);
    }
}

// -1 for a name that is not there.
qsizetype SDBRecord::positionOf(const QString &name) const
{
    return m_names.size() <= kFewNames ? m_names.indexOf(name) : m_positions.value(name, -1);
}

// After the names from first to before end have come to their positions.
void SDBRecord::notePositions(qsizetype first, qsizetype end)
{
    if (m_names.size() <= kFewNames) {
        m_positions.clear();
        return;
    }
    if (m_positions.isEmpty()) {
        first = 0;
        end = m_names.size();
    }
    for (qsizetype i = first; i < end; ++i)
        m_positions.insert(m_names.at(i), i);
}

const SDBField &SDBRecord::search(const QString &name) const
{
    const qsizetype position = positionOf(name);
    return position < 0 ? SDBField::empty : m_fields.at(position);
}

SDBField &SDBRecord::fieldAt(qsizetype position)
{
    if (position >= 0 && position < m_fields.size())
        return m_fields[position];
    // Afresh each time: a caller may have written to what it got before.
    m_spare = SDBField();
    return m_spare;
}

} // namespace Talverine
