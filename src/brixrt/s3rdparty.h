// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>
#include <brixrt/sversion.h>

#include <QtCore/QList>
#include <QtCore/QString>

namespace Talverine {

/*!
 * The process-wide list of the modules that a program is built from, for its page of notices.
 *
 * Libraries register theirs at load. Fully shared: every operation may be called from any thread,
 * also before main().
 */
class BRIXRT_EXPORT S3rdParty
{
public:
    //! One module; all texts but the name may be empty.
    struct Module
    {
        QString name;     //!< as people know it; the key of the list
        QString notice;   //!< file or Qt resource with the text of the licence
        QString address;  //!< where the module comes from, as a URL
        SVersion version; //!< 0.0.0 when it is not known

        friend bool operator==(const Module &, const Module &) = default;
    };

    S3rdParty() = default;

    /*!
     * Lists a module. A name that is listed already keeps its place and takes the new values; an
     * empty name is ignored.
     */
    static void registerModule(const QString &name, const QString &notice = QString(),
                               const QString &address = QString(), SVersion version = SVersion());

    //! All modules in the order in which their names were first registered.
    static QList<Module> modules();
};

} // namespace Talverine
