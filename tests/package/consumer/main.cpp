// SPDX-License-Identifier: MIT
// Uses something of each library, from headers alone as well as from compiled code.
#include <brixlib/brixlib.h>
#include <brixrt/brixrt.h>
#include <brixsec/brixsec.h>

#include <QtCore/QDataStream>
#include <QtCore/QVariant>

#include <cstdio>
#include <memory>

using namespace Talverine;

namespace {

int failures = 0;

void check(bool passed, const char *what)
{
    if (!passed) {
        std::fprintf(stderr, "failed: %s\n", what);
        ++failures;
    }
}

//! Implements interfaces of the package, whose tables of virtual operations live there.
class Value final : public Interfaces::ICloneable, public Interfaces::IEquatable
{
public:
    ICloneable *clone() const override { return new Value; }
    bool isNull() const override { return false; }
    bool equalsTo(const IEquatable *other) const override { return isSameType(other); }
};

//! A command of an application, whose class has no linkage.
class Greet final : public SConcreteCommand<Greet>
{
public:
    Greet()
        : SConcreteCommand(Wire::word("gret"))
    {
    }
    bool operator==(const Greet &) const = default;

    QString name;

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream) { stream >> name; }
    void writeFields(QDataStream &stream) const { stream << name; }
};

} // namespace

int main(int, char **argv)
{
    const SVersion version = SBrixlibInfo::version();
    check(version == SVersion(BRIXLIB_VERSION), "library and headers have one version");

    const SFileEntry entry = SFileEntry::fromFileName(QString::fromLocal8Bit(argv[0]));
    check(entry.isExecutable() && entry.size() > 0, "the entry of this program");

    const QVariant type = QVariant::fromValue(PasswordType::Aes);
    check(type.toString() == QLatin1String("Aes"), "an enumeration turns to text");
    check(QMetaType::fromName("FileEntryFlags").isValid(), "types are registered");

    const Security::SSecureString secret(QStringLiteral("secret"));
    check(secret.toInsecureString() == QLatin1String("secret"), "a secure string");

    const Value value;
    const Value other;
    check(value.equalsTo(&other) && !value.equalsTo(nullptr), "an interface");

    Greet greet;
    greet.name = QStringLiteral("all");
    const std::unique_ptr<SCommand> copy(greet.clone());
    check(copy->equalsTo(&greet), "a command of its own");

    check(S3rdParty::modules().size() == 3, "the modules in use");

    std::printf("%s %s\n", qPrintable(SBrixlibInfo::title()), qPrintable(version.toString()));
    return failures == 0 ? 0 : 1;
}
