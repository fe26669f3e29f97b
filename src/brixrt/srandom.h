// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QRandomGenerator>

namespace Talverine {

/*!
 * A sequence of numbers that looks random and is the same for the same seed. Not for keys, nonces
 * or anything else that nobody may guess.
 *
 * One object belongs to one thread; defaultSeed() is fully shared.
 */
class BRIXRT_EXPORT SRandom
{
public:
    explicit SRandom(quint32 seed);

    //! Any 32-bit number.
    quint32 generate();
    //! A number from 0 up to and without \a bound; 0 for a bound of 0.
    quint32 generate(quint32 bound);

    //! Drawn from the system's own source, so another one each time.
    static quint32 defaultSeed();

private:
    QRandomGenerator m_generator;
};

} // namespace Talverine
