// SPDX-License-Identifier: MIT
#include "secretline.h"
#include "terminal.h"

#include <io.h>
#include <stdio.h>
#include <windows.h>

namespace Brix::Terminal {

using Talverine::Security::SSecureString;

bool isOutput()
{
    return _isatty(_fileno(stdout));
}

bool isDiagnostics()
{
    return _isatty(_fileno(stderr));
}

int width()
{
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info))
        return 80;
    return info.srWindow.Right - info.srWindow.Left + 1;
}

std::optional<SSecureString> readHidden(const QString &prompt)
{
    const HANDLE input = CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                     nullptr, OPEN_EXISTING, 0, nullptr);
    const HANDLE output = CreateFileW(L"CONOUT$", GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    std::optional<SSecureString> line;
    DWORD mode = 0;
    if (GetConsoleMode(input, &mode) &&
        SetConsoleMode(input, (mode & ~DWORD(ENABLE_ECHO_INPUT)) | ENABLE_LINE_INPUT)) {
        DWORD count = 0;
        WriteConsoleW(output, prompt.utf16(), DWORD(prompt.size()), &count, nullptr);
        wchar_t buffer[1024];
        if (ReadConsoleW(input, buffer, 1024, &count, nullptr)) {
            QString text = QString::fromWCharArray(buffer, int(count));
            while (text.endsWith(u'\n') || text.endsWith(u'\r'))
                text.chop(1);
            line = SSecureString(text);
            wipe(text);
        }
        SecureZeroMemory(buffer, sizeof buffer);
        SetConsoleMode(input, mode);
        WriteConsoleW(output, L"\r\n", 2, &count, nullptr);
    }
    CloseHandle(input);
    CloseHandle(output);
    return line;
}

} // namespace Brix::Terminal
