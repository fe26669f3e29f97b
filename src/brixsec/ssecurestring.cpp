// SPDX-License-Identifier: MIT
#include <brixsec/ssecurestring.h>

#include "securememory_p.h"

namespace Talverine::Security {

namespace {

// Calls by name spell the type without the outer namespace, so both spellings are registered.
[[maybe_unused]] const int registered = qRegisterMetaType<SSecureString>("Security::SSecureString");

std::unique_ptr<SecureBlock> blockOf(const QByteArray &bytes)
{
    if (bytes.isNull())
        return nullptr;
    return std::make_unique<SecureBlock>(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

std::unique_ptr<SecureBlock> copyOf(const std::unique_ptr<SecureBlock> &block)
{
    return block ? std::make_unique<SecureBlock>(block->data(), block->size()) : nullptr;
}

} // namespace

SSecureString::SSecureString() = default;

SSecureString::SSecureString(const QString &text)
{
    if (text.isNull())
        return;
    QByteArray utf8 = text.toUtf8();
    m_block =
        std::make_unique<SecureBlock>(utf8.constData(), static_cast<std::size_t>(utf8.size()));
    wipe(utf8.data(), static_cast<std::size_t>(utf8.size()));
}

SSecureString::SSecureString(const QByteArray &utf8)
    : m_block(blockOf(utf8))
{
}

SSecureString::SSecureString(const SSecureString &other)
    : m_block(copyOf(other.m_block))
{
}

SSecureString::SSecureString(SSecureString &&other) noexcept = default;

SSecureString &SSecureString::operator=(const SSecureString &other)
{
    if (this != &other)
        m_block = copyOf(other.m_block);
    return *this;
}

SSecureString &SSecureString::operator=(SSecureString &&other) noexcept = default;

SSecureString::~SSecureString() = default;

bool SSecureString::isNull() const
{
    return !m_block;
}

bool SSecureString::isEmpty() const
{
    return !m_block || m_block->size() == 0;
}

QString SSecureString::toInsecureString() const
{
    if (!m_block)
        return {};
    return QString::fromUtf8(m_block->data(), static_cast<qsizetype>(m_block->size()));
}

QByteArray SSecureString::toInsecureUtf8() const
{
    if (!m_block)
        return {};
    return QByteArray(m_block->data(), static_cast<qsizetype>(m_block->size()));
}

void SSecureString::clear()
{
    m_block.reset();
}

bool operator==(const SSecureString &a, const SSecureString &b)
{
    if (a.isEmpty() || b.isEmpty())
        return a.isEmpty() && b.isEmpty();
    return equalInConstantTime(a.m_block->data(), a.m_block->size(), b.m_block->data(),
                               b.m_block->size());
}

void wipe(QByteArray &bytes)
{
    wipe(bytes.data(), static_cast<std::size_t>(bytes.size()));
    bytes.clear();
}

} // namespace Talverine::Security
