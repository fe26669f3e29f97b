// SPDX-License-Identifier: MIT
// What nearly every test program reads, on top of the libraries' own set.
#pragma once

#include "precompiled_core.h"

#include <QtCore/QBuffer>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
