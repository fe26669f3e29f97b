// SPDX-License-Identifier: MIT
#include "progressbar.h"

#include "output.h"
#include "terminal.h"

#include <algorithm>
#include <cstdio>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 redrawMilliseconds = 100;
constexpr int widestBar = 30;
constexpr int narrowestBar = 5;

// Minutes and seconds, with hours only when there are any.
QString duration(qint64 seconds)
{
    const auto twoDigits = [](qint64 number) {
        return QString::number(number).rightJustified(2, u'0');
    };
    if (seconds < 3600)
        return u"%1:%2"_s.arg(QString::number(seconds / 60), twoDigits(seconds % 60));
    return u"%1:%2:%3"_s.arg(QString::number(seconds / 3600), twoDigits(seconds / 60 % 60),
                             twoDigits(seconds % 60));
}

} // namespace

ProgressBar::ProgressBar(bool hidden, qint64 total)
    : m_enabled(!hidden && Terminal::isDiagnostics())
    , m_total(total)
{
    m_sinceStart.start();
}

ProgressBar::~ProgressBar()
{
    clear();
}

void ProgressBar::setTotal(qint64 total)
{
    m_total = total;
}

void ProgressBar::show(qint64 done)
{
    if (!m_enabled || (m_sinceDrawn.isValid() && !m_sinceDrawn.hasExpired(redrawMilliseconds)))
        return;
    m_sinceDrawn.start();
    // The last column stays free: some terminals wrap as soon as it is written.
    const int width = Terminal::width() - 1;
    const QString line = text(done, m_total, m_sinceStart.elapsed(), width).leftJustified(width);
    std::fputs(("\r" + line.toLocal8Bit()).constData(), stderr);
    std::fflush(stderr);
}

void ProgressBar::clear()
{
    if (!m_sinceDrawn.isValid())
        return;
    m_sinceDrawn.invalidate();
    std::fputs(("\r" + QByteArray(Terminal::width() - 1, ' ') + "\r").constData(), stderr);
    std::fflush(stderr);
}

QString ProgressBar::text(qint64 done, qint64 total, qint64 milliseconds, int width)
{
    const double rate = milliseconds > 0 ? double(done) * 1000 / double(milliseconds) : 0;
    const QString speed = Output::bytes(qint64(rate)) + u"/s"_s;
    if (total <= 0)
        return u"%1  %2"_s.arg(Output::bytes(done), speed).left(width);

    const double part = std::clamp(double(done) / double(total), 0.0, 1.0);
    QString line = u"%1%  %2 of %3  %4"_s.arg(QString::number(int(part * 100)).rightJustified(3),
                                              Output::bytes(done), Output::bytes(total), speed);
    if (rate > 0)
        line += u"  %1 left"_s.arg(
            duration(qint64(double(std::max<qint64>(total - done, 0)) / rate + 0.5)));
    const int bar = std::min(widestBar, width - int(line.size()) - 4);
    if (bar >= narrowestBar) {
        const int full = int(part * bar);
        line = u"[%1%2]  "_s.arg(QString(full, u'#'), QString(bar - full, u'.')) + line;
    }
    return line.left(width);
}

} // namespace Brix
