// SPDX-License-Identifier: MIT
#include "homeoverlap.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFileInfo>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QSet>

#include <algorithm>
#include <tuple>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SAuthenticationDb;

namespace {

constexpr qsizetype kMostWarnings = 20;

//! A home, or a directory beside one.
struct Place
{
    QString path;
    //! The path without case, as the jail compares it.
    QString folded;
    //! Whose home it is; empty for a directory beside a home.
    QStringList users;
};

struct Overlap
{
    const Place *home;
    const Place *reached;
};

QHash<QString, QStringList> usersByHome(const SAuthenticationDb &users)
{
    QHash<QString, QStringList> homes;
    for (const QString &name : users.users()) {
        const QString home = users.sharedUser(name)->homeFolder();
        if (!home.isEmpty())
            homes[QDir(home).absolutePath()].append(name);
    }
    return homes;
}

QSet<QString> directoriesBeside(const QHash<QString, QStringList> &homes)
{
    QSet<QString> parents;
    for (auto it = homes.begin(); it != homes.end(); ++it)
        parents.insert(QFileInfo(it.key()).path());
    QSet<QString> found;
    for (const QString &parent : std::as_const(parents)) {
        QDirIterator it(parent, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot);
        while (it.hasNext()) {
            const QString path = it.next();
            if (!homes.contains(path))
                found.insert(path);
        }
    }
    return found;
}

// Sorted, so that all that begin with the same text are neighbours.
QList<Place> placesOf(const SAuthenticationDb &users)
{
    const auto homes = usersByHome(users);
    QList<Place> places;
    for (auto it = homes.begin(); it != homes.end(); ++it)
        places.append({it.key(), it.key().toCaseFolded(), it.value()});
    for (const QString &path : directoriesBeside(homes))
        places.append({path, path.toCaseFolded(), {}});
    std::sort(places.begin(), places.end(), [](const Place &a, const Place &b) {
        return std::tie(a.folded, a.path) < std::tie(b.folded, b.path);
    });
    return places;
}

bool isBelow(const QString &path, const QString &home)
{
    return path.startsWith(home.endsWith(u'/') ? home : home + u'/');
}

// What lies below a home is meant to be reached, unless it is another home.
bool isSurprising(const Place &home, const Place &reached)
{
    return &home != &reached && (!reached.users.isEmpty() || !isBelow(reached.path, home.path));
}

QList<Overlap> overlapsOf(const QList<Place> &places)
{
    QList<Overlap> overlaps;
    for (const Place &home : places) {
        if (home.users.isEmpty())
            continue;
        auto it = std::lower_bound(
            places.begin(), places.end(), home.folded,
            [](const Place &place, const QString &folded) { return place.folded < folded; });
        for (; it != places.end() && it->folded.startsWith(home.folded); ++it) {
            if (isSurprising(home, *it))
                overlaps.append(Overlap{&home, &*it});
        }
    }
    return overlaps;
}

QString sentence(const Overlap &overlap)
{
    const auto &[home, reached] = overlap;
    const QString whose =
        reached->users.isEmpty() ? QString() : u", the home of "_s + reached->users.join(u", "_s);
    const QString what =
        u"%1 can read and change %2%3: "_s.arg(home->users.join(u", "_s), reached->path, whose);
    if (isBelow(reached->path, home->path))
        return what +
               u"it is below %1; choose homes outside each other unless this is wanted"_s.arg(
                   home->path);
    return what +
           u"its path begins with %1, without regard to case; rename one of them, or serve with --strict-jail"_s
               .arg(home->path);
}

QStringList sentences(const QList<Overlap> &overlaps)
{
    QStringList texts;
    for (const Overlap &overlap : overlaps.first(std::min(overlaps.size(), kMostWarnings)))
        texts.append(sentence(overlap));
    if (overlaps.size() > kMostWarnings)
        texts.append(u"%1 more such directories are not shown"_s.arg(
            QString::number(overlaps.size() - kMostWarnings)));
    return texts;
}

} // namespace

QStringList HomeOverlap::warnings(const SAuthenticationDb &users, Jail jail)
{
    const QList<Place> places = placesOf(users);
    QList<Overlap> overlaps = overlapsOf(places);
    if (jail == Jail::Strict)
        overlaps.removeIf([](const Overlap &overlap) {
            return !isBelow(overlap.reached->path, overlap.home->path);
        });
    return sentences(overlaps);
}

QStringList HomeOverlap::warningsAbout(const SAuthenticationDb &users, const QString &name)
{
    const QList<Place> places = placesOf(users);
    QList<Overlap> overlaps = overlapsOf(places);
    overlaps.removeIf([&](const Overlap &overlap) {
        return !overlap.home->users.contains(name) && !overlap.reached->users.contains(name);
    });
    return sentences(overlaps);
}

} // namespace Brix
