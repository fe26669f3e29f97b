// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <span>

/*!
 * Readers of foreign bytes as plain functions: libFuzzer, the replay program and a test call the
 * same ones.
 */
namespace Fuzz {

/*!
 * Reads \a input as a hostile peer or a damaged file would bring it, and checks what must hold
 * whatever it is. True when all of it was accepted: each seed of the corpus is, so that a seed
 * cannot go stale unseen.
 */
using Run = bool (*)(const QByteArray &input);

struct Target
{
    const char *name; //!< of its folders too
    Run run;
};

//! Every target there is.
std::span<const Target> targets();
//! Null when there is none of that name.
Run findTarget(QByteArrayView name);

/*!
 * To be called once before a target runs, behind the making of the QCoreApplication. Nested event
 * loops return at once from then on, files don't grow beyond 4 MiB, and debug lines are dropped.
 */
void prepareProcess();

//! Ends the program when \a holds is false: the input has found an error.
void require(bool holds, const char *what);

//! The bytes of an input, taken from its front.
class Input
{
public:
    explicit Input(const QByteArray &bytes)
        : m_rest(bytes)
    {
    }

    //! The next byte; 0 behind the end.
    quint8 byte() { return m_rest.isEmpty() ? quint8(0) : static_cast<quint8>(bytes(1).front()); }
    //! The next \a count bytes, or the fewer there are.
    QByteArrayView bytes(qsizetype count)
    {
        const QByteArrayView taken = m_rest.first(qMin(count, m_rest.size()));
        m_rest = m_rest.sliced(taken.size());
        return taken;
    }
    //! All that is left, without a copy: good as long as the input.
    QByteArray rest() const { return QByteArray::fromRawData(m_rest.data(), m_rest.size()); }

private:
    QByteArrayView m_rest;
};

} // namespace Fuzz
