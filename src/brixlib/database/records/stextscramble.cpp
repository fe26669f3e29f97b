// SPDX-License-Identifier: MIT
#include <brixlib/database/records/stextscramble.h>

#include <brixrt/srandom.h>
#include <brixsec/sobfuscatedstring.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace Talverine {

namespace {

const QString &defaultSeed()
{
    static constexpr Security::SObfuscatedString text("q7Vx2mKz9TbLd");
    static const QString seed = text.toString();
    return seed;
}

const QString &randomAlphabet()
{
    static constexpr Security::SObfuscatedString text("0123456789abcdefghijklmnopqrstuvwxyz");
    static const QString alphabet = text.toString();
    return alphabet;
}

/*!
 * Gives each character its place: the one that the seed names, or the next free one behind it,
 * going on at the front.
 */
class Places
{
public:
    // Each place names the nearest one from itself on that may be free; behind the last, the end.
    Places(const QString &seed, qsizetype count)
        : m_seed(seed)
        , m_next(static_cast<std::size_t>(count) + 1)
    {
        std::iota(m_next.begin(), m_next.end(), std::size_t{0});
    }

    // Of the i-th character; there are no more characters than places.
    qsizetype take(qsizetype i)
    {
        const std::size_t count = m_next.size() - 1;
        std::size_t place = free(m_seed.at(i % m_seed.size()).unicode() % count);
        if (place == count)
            place = free(0);
        m_next[place] = place + 1;
        return static_cast<qsizetype>(place);
    }

private:
    // Halves the way on each search, so that long texts don't take a time that grows with the
    // square of their length.
    std::size_t free(std::size_t place)
    {
        while (m_next[place] != place) {
            m_next[place] = m_next[m_next[place]];
            place = m_next[place];
        }
        return place;
    }

    const QString &m_seed;
    std::vector<std::size_t> m_next;
};

QString randomText(int count)
{
    SRandom random(SRandom::defaultSeed());
    const QString &alphabet = randomAlphabet();
    const auto letters = static_cast<quint32>(alphabet.size());
    QString text(count, Qt::Uninitialized);
    for (QChar &character : text)
        character = alphabet.at(static_cast<qsizetype>(random.generate() % letters));
    return text;
}

} // namespace

STextScramble::STextScramble()
    : m_seed(defaultSeed())
{
}

void STextScramble::setSeed(const QString &seed)
{
    m_seed = seed.isEmpty() ? defaultSeed() : seed;
}

QString STextScramble::scramble(const QString &text, int randomCount) const
{
    if (text.isEmpty())
        return text;
    const QString work = randomCount > 0 ? text + randomText(randomCount) : text;
    Places places(m_seed, work.size());
    QString result(work.size(), Qt::Uninitialized);
    QChar *characters = result.data();
    for (qsizetype i = 0; i < work.size(); ++i)
        characters[places.take(i)] = work.at(i);
    return result;
}

QString STextScramble::unScramble(const QString &text, int randomCount) const
{
    if (text.isEmpty())
        return text;
    Places places(m_seed, text.size());
    QString work(text.size(), Qt::Uninitialized);
    QChar *characters = work.data();
    for (qsizetype i = 0; i < text.size(); ++i)
        characters[i] = text.at(places.take(i));
    const qsizetype kept = std::max(text.size() - qsizetype{randomCount}, qsizetype{1});
    return work.left(kept);
}

} // namespace Talverine
