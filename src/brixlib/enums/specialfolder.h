// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! A standard folder of the machine; 0 to 18 are those of QStandardPaths::StandardLocation.
// clang-format off
S_ENUM(SpecialFolder,
    DesktopLocation = 0,
    DocumentsLocation = 1,
    FontsLocation = 2,
    ApplicationsLocation = 3,
    MusicLocation = 4,
    MoviesLocation = 5,
    PicturesLocation = 6,
    TempLocation = 7,
    HomeLocation = 8,
    DataLocation = 9,
    AppLocalDataLocation = 9,
    CacheLocation = 10,
    GenericDataLocation = 11,
    RuntimeLocation = 12,
    ConfigLocation = 13,
    DownloadLocation = 14,
    GenericCacheLocation = 15,
    GenericConfigLocation = 16,
    AppDataLocation = 17,
    AppConfigLocation = 18,
    RootLocation = 100,
    CommonDataLocation = 101,
    ColorFolder = 102
)
S_ENUM_TRANSLATION(SpecialFolder)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SpecialFolder)
