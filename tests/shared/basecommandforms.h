// SPDX-License-Identifier: MIT
#pragma once

#include <shared/commandforms.h>

#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/commands/scommandclientdevice.h>
#include <brixlib/protocol/commands/scommandcommandlist.h>
#include <brixlib/protocol/commands/scommandlinktest.h>
#include <brixlib/protocol/commands/scommandpluggable.h>
#include <brixlib/protocol/commands/scommandpluggablelist.h>
#include <brixlib/protocol/commands/scommandservername.h>
#include <brixlib/protocol/commands/scommandstreamversion.h>
#include <brixlib/protocol/commands/scommandwhoami.h>

#include <limits>

namespace TestShared {

//! The commands of the base protocol as bytes written by hand.
class BaseCommandForms final : public CommandForms
{
public:
    static constexpr int kOtherVersion = 0x00030405;

    BaseCommandForms()
    {
        using namespace Talverine;
        using namespace Qt::StringLiterals;

        fieldlessRow<SCommandCommandList>("command list",
                                          "73636D64 00020000 73636D69 00010000 636D646C");
        fieldlessRow<SCommandServerName>("server name",
                                         "73636D64 00010000 73636D69 00010000 7372766E");
        fieldlessRow<SCommandWhoAmI>("who am I", "73636D64 00010000 73636D69 00010000 77616D69");
        fieldlessRow<SCommandPluggableList>("pluggable list",
                                            "73636D64 00010000 73636D69 00010000 706C676C");

        const SCommandAuthentication otherLogin(u"other"_s, "x");
        row("authentication, an SCommandAuthentication of Alice travels as alice",
            "73636D64 00010000 73636D69 00010000 61757468"
            "0000000A 0061 006C 0069 0063 0065"
            "0000000C 0061 0062 0063 0031 0032 0033",
            SCommandAuthentication(u"Alice"_s, "abc123"), otherLogin);
        row("authentication, no values",
            "73636D64 00010000 73636D69 00010000 61757468 FFFFFFFF FFFFFFFF",
            SCommandAuthentication(), otherLogin);
        row("authentication, empty values",
            "73636D64 00010000 73636D69 00010000 61757468 00000000 00000000",
            SCommandAuthentication(u""_s, ""), otherLogin);
        row("authentication, letters beyond ASCII",
            "73636D64 00010000 73636D69 00010000 61757468"
            "00000006 00E9 D83D DE00"
            "00000002 00E9",
            SCommandAuthentication(u"É\U0001F600"_s, "\xC3\xA9"), otherLogin);

        const SCommandStreamVersion otherStream(QDataStream::Qt_4_0);
        row("stream version", "73636D64 00010000 73636D69 00010000 73747276 00000014",
            SCommandStreamVersion(QDataStream::Qt_6_0), otherStream);

        const SCommandPluggable otherPluggable(u"other"_s, "x");
        row("pluggable",
            "73636D64 00010000 73636D69 00010000 706C6762"
            "00000008 0065 0063 0068 006F"
            "00000003 00 FF 7F",
            SCommandPluggable(u"echo"_s, QByteArray("\x00\xFF\x7F", 3)), otherPluggable);
        row("pluggable, no values",
            "73636D64 00010000 73636D69 00010000 706C6762 FFFFFFFF FFFFFFFF",
            SCommandPluggable(QString(), QByteArray()), otherPluggable);
        row("pluggable, empty values",
            "73636D64 00010000 73636D69 00010000 706C6762 00000000 00000000",
            SCommandPluggable(u""_s, ""), otherPluggable);

        const SCommandLinkTest otherTest(7, 8);
        row("link test", "73636D64 00010000 73636D69 00010000 6C6E6B74 00000002 00000003",
            SCommandLinkTest(2, 3), otherTest);
        row("link test, extremes", "73636D64 00010000 73636D69 00010000 6C6E6B74 80000000 7FFFFFFF",
            SCommandLinkTest(std::numeric_limits<qint32>::min(), 0x7FFFFFFF), otherTest);
        row("link test, more seconds than 32 bits",
            "73636D64 00010000 73636D69 00010000 6C6E6B74 00000000 00000005",
            SCommandLinkTest(0, 0x700000005LL), otherTest);

        const SCommandClientDevice otherDevice(u"other"_s);
        row("client device",
            "73636D64 00010000 73636D69 00010000 636C6476 00000008 002F 0061 002F 0062",
            SCommandClientDevice(u"/a/b"_s), otherDevice);
        row("client device, no name", "73636D64 00010000 73636D69 00010000 636C6476 FFFFFFFF",
            SCommandClientDevice(), otherDevice);
    }

private:
    template<class C>
    void row(const QByteArray &name, const QByteArray &digits, const C &command, const C &other)
    {
        add(name, {hex(digits), std::make_shared<C>(command), std::make_shared<C>(command),
                   made(other, kOtherVersion)});
    }

    template<class C>
    void fieldlessRow(const QByteArray &name, const QByteArray &digits)
    {
        row(name, digits, C(), C());
    }
};

} // namespace TestShared
