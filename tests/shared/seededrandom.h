// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QtGlobal>
#include <QtTest/QTest>

#include <random>

/*!
 * Random numbers that a run can be repeated with: the seed is printed, and taken from the
 * environment variable BRIX_TEST_SEED where that is set.
 */
class SeededRandom final
{
public:
    SeededRandom()
        : SeededRandom(chosenSeed())
    {
        qInfo("seed: BRIX_TEST_SEED=%u", m_seed);
    }
    //! The numbers of a seed that was printed already.
    explicit SeededRandom(quint32 seed)
        : m_seed(seed)
        , m_engine(seed)
    {
    }

    quint32 seed() const { return m_seed; }

    //! From \a lowest to \a highest, both included.
    qint64 between(qint64 lowest, qint64 highest)
    {
        // The standard's distributions differ from one library to the other.
        const auto span = static_cast<quint64>(highest - lowest) + 1;
        return lowest + static_cast<qint64>(m_engine() % span);
    }
    //! True in \a percent of a hundred cases.
    bool chance(int percent) { return between(0, 99) < percent; }

    QByteArray bytes(qint64 size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        for (char &byte : bytes)
            byte = static_cast<char>(m_engine());
        return bytes;
    }

private:
    static quint32 chosenSeed()
    {
        bool given = false;
        const int seed = qEnvironmentVariableIntValue("BRIX_TEST_SEED", &given);
        return given ? static_cast<quint32>(seed) : std::random_device()() & 0x7FFFFFFFU;
    }

    quint32 m_seed;
    std::mt19937_64 m_engine;
};
