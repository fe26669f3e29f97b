// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>
#include <brixrt/isenum.h>

namespace Talverine {

/*!
 * Extends the table of one enumeration at run time, and translates its texts.
 *
 * Handed to SEnumRuntimeLoader::loaderRegister(), which takes ownership. Both calls may come from
 * any thread, from several at once, and from static initialisers.
 */
class BRIXRT_EXPORT ISEnumRuntimeLoader
{
public:
    virtual ~ISEnumRuntimeLoader();
    /*!
     * True when the loader knows \a text (a key or a value as text); then \a source holds the text
     * as declared and \a translated its translation. Otherwise both stay as they were.
     */
    virtual bool translate(const QString &text, QString *source, QString *translated) = 0;
    /*!
     * May insert further pairs into \a table. Works on the table passed in and on no other: that
     * table may be under construction, so its static instance must not be asked for.
     */
    virtual void load(ISEnum *table) = 0;

protected:
    ISEnumRuntimeLoader() = default;
    Q_DISABLE_COPY_MOVE(ISEnumRuntimeLoader)
};

/*!
 * The process-wide list of loaders by the name of the enumeration they extend.
 *
 * Fully shared: every operation may be called from any thread, also before main(). Extending a
 * table that exists is the exception, see loaderRegister().
 */
class BRIXRT_EXPORT SEnumRuntimeLoader
{
public:
    SEnumRuntimeLoader() = default;

    /*!
     * Registers \a loader for the enumeration \a enumName and takes ownership; a loader registered
     * for that name before stays alive but is asked no more, and null only takes it away. Tables of
     * that name which exist already are extended at once, since static initialisers run in no
     * order; what a former loader added to them stays. Tables have no lock of their own, so while
     * tables of that name exist, no other thread may use, build or destroy one during this call.
     */
    static void loaderRegister(const QString &enumName, ISEnumRuntimeLoader *loader);
    /*!
     * Called last in the constructor of a companion class: extends \a table by the registered
     * loader, if any, and remembers the table for loaders that come later.
     */
    static void loader(const QString &enumName, ISEnum *table);
    //! The loader of \a enumName, or null. It lives until the process ends.
    static ISEnumRuntimeLoader *find(const QString &enumName);
    //! Forgets \a table; called when a companion object dies.
    static void forget(ISEnum *table);
};

} // namespace Talverine
