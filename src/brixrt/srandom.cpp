// SPDX-License-Identifier: MIT
#include <brixrt/srandom.h>

namespace Talverine {

SRandom::SRandom(quint32 seed)
    : m_generator(seed)
{
}

quint32 SRandom::generate()
{
    return m_generator.generate();
}

quint32 SRandom::generate(quint32 bound)
{
    return m_generator.bounded(bound);
}

quint32 SRandom::defaultSeed()
{
    return QRandomGenerator::system()->generate();
}

} // namespace Talverine
