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

//! What every database begins with.
inline QByteArray databaseComment()
{
    return QByteArrayLiteral(
        "# TextDB file type.\r\n"
        "#\r\n"
        "# *** DO NOT EDIT! ***\r\n"
        "#\r\n"
        "# Special chars:\r\n"
        "#\r\n"
        "# '#' is a text comment identifier: a line that starts with this char is ignored\r\n"
        "# '$' is a delete identifier: a key that starts with this char match a deleted record\r\n"
        "# '_' is a special field identifier: fields starting with this char are reserved\r\n"
        "\r\n\r\n");
}

//! All that stands before the records of a database of "ada", whose password is "secret", with the
//! key field "name".
inline QByteArray databaseHead()
{
    return databaseComment() +
           QByteArrayLiteral(
               "dbkey = name\r\n"
               "dbowner = ada\r\n"
               "dbpasswd = e5e9fa1ba31ecd1ae84f75caaa474f3a663f05f4\r\n"
               "dbgrants = readonly\r\n"
               "dbcultureinfo = en-US\r\n"
               "dbversion = 1\r\n"
               "_signature = 2de3baf939735b7174395d8118a8a9c3fb3f2ef15c9e8e78e6af598280307543\r\n"
               "dbkey = ! <-- this char ends the special record\r\n"
               "\r\n\r\n"
               "# --- Data starts here ---\r\n");
}

//! That database with a removed record "cyan" and the one that was inserted after it.
inline QByteArray database()
{
    return databaseHead() +
           "\r\n\r\n"
           "name =$ncay\r\n"
           "level = 7\r\n"
           "_recowner = ada\r\n"
           "_cultureinfo = en-US\r\n"
           "_datetime = 2026-11-20T17:16:38.002Z\r\n"
           "_signature = df3480c892279a295b23c789666ef5a341bfd2152c3dd32978163a21f459d53f\r\n"
           "\r\n\r\n"
           "name = cyan\r\n"
           "level = 12\r\n"
           "tags.0 = water\r\n"
           "tags.1 = matt\r\n"
           "_recowner = ada\r\n"
           "_cultureinfo = en-US\r\n"
           "_datetime = 2026-11-20T17:16:39.145Z\r\n"
           "_signature = c905c0b6cc9307f19d210e33d721e29027e4fd3ce1d70e5a69799e0d5b4539a9\r\n";
}

//! What stands behind the checksum of a database's index with counts of 32 bits: the keys "cyan" at
//! 816 and "żó" at 1000, and the field "level" that is "12" in both.
inline QByteArray databaseIndexItems()
{
    return QByteArray::fromHex("00000002"
                               "00000004 6379616E 0000000000000330"
                               "00000004 C5BCC3B3 00000000000003E8"
                               "00000001"
                               "00000005 6C6576656C 00000002"
                               "00000002 3132 00000004 6379616E"
                               "00000002 3132 00000004 C5BCC3B3");
}

} // namespace GoldenBytes
