// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtTest/QTest>

#include <tuple>
#include <type_traits>
#include <utility>

/*!
 * Keeps the arguments of each emission of a signal, also of a sender in another thread: they arrive
 * as queued calls in the thread that made the log, so what the test reads is its own.
 *
 *     SignalLog results(client, &SClientBase::commandResult);
 *     QVERIFY(results.waitForCount(1));
 *     QCOMPARE(results.value<1>(), true);
 */
template<typename... Values>
class SignalLog final
{
public:
    template<typename Class, typename... Arguments>
    SignalLog(const std::type_identity_t<Class> *sender, void (Class::*signal)(Arguments...))
    {
        listen(sender, signal);
    }
    template<typename Class, typename... Arguments>
    SignalLog(const std::type_identity_t<Class> *sender, void (Class::*signal)(Arguments...) const)
    {
        listen(sender, signal);
    }

    qsizetype count() const { return m_entries.size(); }
    bool isEmpty() const { return m_entries.isEmpty(); }
    void clear() { m_entries.clear(); }
    const QList<std::tuple<Values...>> &entries() const { return m_entries; }

    //! Argument \a Index of emission \a i, of the last one by default; a default value without any.
    template<std::size_t Index = 0>
    auto value(qsizetype i = -1) const
    {
        using Value = std::tuple_element_t<Index, std::tuple<Values...>>;
        if (i < 0)
            i += m_entries.size();
        return i >= 0 && i < m_entries.size() ? std::get<Index>(m_entries.at(i)) : Value{};
    }

    //! Waits, with events going on, until there are at least \a count emissions.
    [[nodiscard]] bool waitForCount(qsizetype count, int msec = 10000)
    {
        return QTest::qWaitFor([this, count] { return m_entries.size() >= count; }, msec);
    }

private:
    template<typename Class, typename Signal>
    void listen(const Class *sender, Signal signal)
    {
        QObject::connect(sender, signal, &m_context, [this](const Values &...values) {
            m_entries.append(std::make_tuple(values...));
        });
    }

    QObject m_context;
    QList<std::tuple<Values...>> m_entries;
};

template<typename Class, typename... Arguments>
SignalLog(const std::type_identity_t<Class> *, void (Class::*)(Arguments...))
    -> SignalLog<std::decay_t<Arguments>...>;

template<typename Class, typename... Arguments>
SignalLog(const std::type_identity_t<Class> *, void (Class::*)(Arguments...) const)
    -> SignalLog<std::decay_t<Arguments>...>;
