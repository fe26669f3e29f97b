// SPDX-License-Identifier: MIT
#include "messagehandler.h"

#include "logwriter.h"
#include <cli/printabletext.h>

#include <QtCore/QString>
#include <QtCore/qlogging.h>

#include <cstdio>
#include <mutex>

namespace Brix {

namespace {

std::mutex redirectionMutex;
LogWriter *redirection = nullptr;

void writeToStandardError(const QString &text)
{
    const QByteArray line = printableText(text).toLocal8Bit() + '\n';
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    std::fflush(stderr);
}

void handleMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const QString text = qFormatLogMessage(type, context, message);
    // A pattern that leaves this kind of message out.
    if (text.isNull())
        return;
    const std::lock_guard lock(redirectionMutex);
    // After a fatal message the program is aborted before a queue could be written.
    if (redirection && type != QtFatalMsg)
        redirection->write(text);
    else
        writeToStandardError(text);
}

} // namespace

void installMessageHandler()
{
    qInstallMessageHandler(handleMessage);
}

MessageRedirection::MessageRedirection(LogWriter *writer)
{
    const std::lock_guard lock(redirectionMutex);
    redirection = writer;
}

MessageRedirection::~MessageRedirection()
{
    const std::lock_guard lock(redirectionMutex);
    redirection = nullptr;
}

} // namespace Brix
