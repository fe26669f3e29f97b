// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

/*!
 * Records and files as bytes written by hand, for the tests of their readers and writers and for
 * the first inputs of the programs that try random ones. What they hold is told beside each.
 */
namespace GoldenBytes {

//! The list of the commands "auth" and "cmdl", in the form without versions.
inline QByteArray commandIds()
{
    return QByteArray::fromHex("00000002"
                               "73636D69 00010000 61757468"
                               "73636D69 00010000 636D646C");
}

//! The versions 1.0.0 and 2.0.0, which follow the ids in the newer form.
inline QByteArray commandVersions()
{
    return QByteArray::fromHex("00000002 00010000 00020000");
}

//! The list of "aé", an empty text and a null one.
inline QByteArray texts()
{
    return QByteArray::fromHex("00000003"
                               "00000004 0061 00E9"
                               "00000000"
                               "FFFFFFFF");
}

//! Entries: "a" of 258 bytes with the flags 0x66440006, from 2024-01-02 03:04:05.678 UTC (the day
//! 2460312, 11045678 ms, UTC); and the directory ".." without a date (no day, no time, local).
inline QByteArray entries()
{
    return QByteArray::fromHex(
        "00000002"
        "00010100 00000002 0061 0000000000000102 66440006 0000000000258A98 00A88B2E 01"
        "00010100 00000004 002E 002E 0000000000000000 00000001 8000000000000000 FFFFFFFF 00");
}

//! What a pluggable gives for the text "größer".
inline QByteArray pluggableText()
{
    return QByteArrayLiteral("STRGgr\xc3\xb6\xc3\x9f"
                             "er");
}

//! What a pluggable gives for "a", an empty text and "né".
inline QByteArray pluggableTexts()
{
    return QByteArray::fromHex("5354524c 00000003 00000001 61 00000000 00000003 6ec3a9");
}

//! What a pluggable gives for an object with the number 8 as "heads" and the text "Größe" as
//! "name".
inline QByteArray pluggableDocument()
{
    return QByteArrayLiteral("JSON{\n    \"heads\": 8,\n    \"name\": \"Größe\"\n}\n");
}

//! The file of two users: "ann", of whom only the hash "ab" and the home folder "/srv/ann" are
//! known, and "zoë", who is disabled and has every field.
inline QByteArray userFile()
{
    return QByteArrayLiteral("{\n"
                             "    \"users\": [\n"
                             "        {\n"
                             "            \"disabled\": false,\n"
                             "            \"email\": \"\",\n"
                             "            \"fullname\": \"\",\n"
                             "            \"homeFolder\": \"/srv/ann\",\n"
                             "            \"password\": \"ab\",\n"
                             "            \"username\": \"ann\"\n"
                             "        },\n"
                             "        {\n"
                             "            \"disabled\": true,\n"
                             "            \"email\": \"zoe@example.com\",\n"
                             "            \"fullname\": \"Zoë \\\"Z\\\"\",\n"
                             "            \"homeFolder\": \"C:\\\\Data\\\\zoë\",\n"
                             "            \"password\": \"00ff\",\n"
                             "            \"username\": \"zoë\"\n"
                             "        }\n"
                             "    ]\n"
                             "}\n");
}

//! A ring buffer of 8 bytes from which "fghAB" can be read.
inline QByteArray ring()
{
    return QByteArray::fromHex("73696f62 00010000"
                               "0000000000000005"
                               "0000000000000002"
                               "00"
                               "73617272 00010000"
                               "0000000000000008"
                               "0000000000000008"
                               "4142636465666768");
}

} // namespace GoldenBytes
