// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/pluggables/spluggablestring.h>

namespace Talverine {

/*!
 * Publishes the application's name and version, with a blank between, as QCoreApplication knows
 * them when the object is made.
 */
class BRIXLIB_EXPORT SPluggableServerVersion : public SPluggableString
{
    Q_OBJECT

public:
    explicit SPluggableServerVersion(QObject *parent = nullptr);
};

} // namespace Talverine
