// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

class QNetworkAccessManager;

namespace Talverine {

/*!
 * Holds the QNetworkAccessManager that a program shares among everything that speaks HTTP.
 *
 * The manager stays the program's and works in one thread only, so only callers in that thread get
 * it. Fully shared.
 */
class BRIXLIB_EXPORT SGlobalNetworkAccessManager
{
public:
    SGlobalNetworkAccessManager() = default;

    //! The shared manager; null if none is set, if it has died, or in another thread than its own.
    static QNetworkAccessManager *globalNetworkAccessManager();
    /*!
     * Shares \a manager from now on; null shares none. Ownership stays with the caller. To be
     * called again when the manager has moved to another thread.
     */
    static void setGlobalNetworkAccessManager(QNetworkAccessManager *manager);
};

} // namespace Talverine
