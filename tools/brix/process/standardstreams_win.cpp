// SPDX-License-Identifier: MIT
#include "standardstreams.h"

#include <cli/failure.h>

#include <QtCore/QThread>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>

namespace Brix::StandardStreams {

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kLargestPiece = 0x100000;

// Line ends stay as they are.
int binary(FILE *stream)
{
    const int descriptor = _fileno(stream);
    _setmode(descriptor, _O_BINARY);
    return descriptor;
}

void stopIfAsked()
{
    if (QThread::currentThread()->isInterruptionRequested())
        throw Failure{ExitCode::Interrupted, u"interrupted"_s};
}

unsigned int piece(qint64 size)
{
    return static_cast<unsigned int>(std::min(size, kLargestPiece));
}

QString reason()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

void keepPlaces()
{
    // Sockets have numbers of their own here.
}

qint64 readInput(char *data, qint64 size)
{
    stopIfAsked();
    const int count = _read(binary(stdin), data, piece(size));
    if (count < 0)
        throw Failure{ExitCode::LocalIo, u"cannot read stdin: %1"_s.arg(reason())};
    return count;
}

void writeOutput(const char *data, qint64 size)
{
    while (size > 0) {
        stopIfAsked();
        const int count = _write(binary(stdout), data, piece(size));
        if (count < 0)
            throw Failure{ExitCode::LocalIo, u"cannot write to stdout: %1"_s.arg(reason())};
        data += count;
        size -= count;
    }
}

bool hasReader()
{
    return true;
}

} // namespace Brix::StandardStreams
