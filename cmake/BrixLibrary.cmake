# SPDX-License-Identifier: MIT
# One list of classes per folder feeds the build, the umbrella headers, the installation and the
# test that compiles each public header alone.

include(GenerateExportHeader)

# Installed programs and libraries find the libraries wherever the whole prefix is moved.
if(NOT WIN32 AND NOT DEFINED CMAKE_INSTALL_RPATH)
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY "${CMAKE_INSTALL_FULL_BINDIR}"
        OUTPUT_VARIABLE bin_to_lib)
    if(APPLE)
        set(CMAKE_INSTALL_RPATH "@loader_path;@loader_path/${bin_to_lib}")
    else()
        set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/${bin_to_lib}")
    endif()
    # Qt may live outside of the system's folders too.
    set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
endif()

# brix_library(<name>): a shared library with hidden visibility, its export header
# <name>/<name>_export.h, its version header <name>/<name>_version.h, and the alias brixlib::<name>.
function(brix_library name)
    string(TOUPPER ${name} upper)
    add_library(${name} SHARED)
    add_library(brixlib::${name} ALIAS ${name})
    brix_compile_settings(${name})
    generate_export_header(${name}
        BASE_NAME ${upper}
        EXPORT_FILE_NAME "${PROJECT_BINARY_DIR}/include/${name}/${name}_export.h")
    brix_write_version_header(${name} ${upper})
    target_compile_features(${name} PUBLIC cxx_std_20)
    target_include_directories(${name} PUBLIC
        "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>"
        "$<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>"
        "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    target_precompile_headers(${name} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/precompiled_core.h")
    set_target_properties(${name} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})
    install(TARGETS ${name} EXPORT brixlibTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES
        "${PROJECT_BINARY_DIR}/include/${name}/${name}_export.h"
        "${PROJECT_BINARY_DIR}/include/${name}/${name}_version.h"
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${name})
    set_property(GLOBAL APPEND PROPERTY BRIX_PUBLIC_HEADERS
        ${name}/${name}_export.h ${name}/${name}_version.h)
endfunction()

# Writes <name>/<name>_version.h: the version as a number to compare, and as text.
function(brix_write_version_header name upper)
    math(EXPR number
        "${PROJECT_VERSION_MAJOR} << 16 | ${PROJECT_VERSION_MINOR} << 8 | ${PROJECT_VERSION_PATCH}"
        OUTPUT_FORMAT HEXADECIMAL)
    file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/include/${name}/${name}_version.h" @ONLY CONTENT
"// SPDX-License-Identifier: MIT
#pragma once

// Major << 16 | minor << 8 | patch.
#define ${upper}_VERSION ${number}
#define ${upper}_VERSION_STRING \"${PROJECT_VERSION}\"
")
endfunction()

# brix_library_folder(<library> <folder> [CLASSES <file stems>] [HEADERS <header stems>]
#     [PRIVATE <files>]): adds <stem>.h and <stem>.cpp of each class, the headers without a source,
# and private files, all relative to <folder> ("." for the library's own); makes the umbrella header
# and installs the public ones.
function(brix_library_folder library folder)
    cmake_parse_arguments(ARG "" "" "CLASSES;HEADERS;PRIVATE" ${ARGN})
    set(root "${PROJECT_SOURCE_DIR}/src/${library}")
    if(folder STREQUAL ".")
        set(prefix "")
        set(umbrella ${library})
    else()
        set(prefix "${folder}/")
        set(umbrella ${folder})
    endif()

    set(public "")
    foreach(stem IN LISTS ARG_CLASSES)
        target_sources(${library} PRIVATE "${root}/${prefix}${stem}.cpp" "${root}/${prefix}${stem}.h")
        list(APPEND public "${prefix}${stem}.h")
    endforeach()
    foreach(stem IN LISTS ARG_HEADERS)
        target_sources(${library} PRIVATE "${root}/${prefix}${stem}.h")
        list(APPEND public "${prefix}${stem}.h")
    endforeach()
    foreach(file IN LISTS ARG_PRIVATE)
        target_sources(${library} PRIVATE "${root}/${prefix}${file}")
    endforeach()

    list(SORT public)
    set(includes "")
    foreach(header IN LISTS public)
        string(APPEND includes "#include <${library}/${header}>\n")
        cmake_path(GET header PARENT_PATH subfolder)
        install(FILES "${root}/${header}" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${library}/${subfolder})
    endforeach()
    string(REPLACE "/" "_" umbrella "${umbrella}")
    if(NOT folder STREQUAL ".")
        set_property(GLOBAL APPEND PROPERTY BRIX_UMBRELLAS_${library} ${umbrella})
    endif()
    brix_write_umbrella(${library} ${umbrella} "${includes}")
    list(TRANSFORM public PREPEND "${library}/")
    set_property(GLOBAL APPEND PROPERTY BRIX_PUBLIC_HEADERS ${public} ${library}/${umbrella}.h)
endfunction()

# brix_library_umbrella(<library>): <library>/<library>.h over the umbrella headers of all folders;
# stands behind the last of them.
function(brix_library_umbrella library)
    get_property(folders GLOBAL PROPERTY BRIX_UMBRELLAS_${library})
    set(includes "")
    foreach(folder IN LISTS folders)
        string(APPEND includes "#include <${library}/${folder}.h>\n")
    endforeach()
    brix_write_umbrella(${library} ${library} "${includes}")
    set_property(GLOBAL APPEND PROPERTY BRIX_PUBLIC_HEADERS ${library}/${library}.h)
endfunction()

# Writes <library>/<umbrella>.h with the given include lines and installs it.
function(brix_write_umbrella library umbrella includes)
    set(what "${library}/${umbrella}")
    if(umbrella STREQUAL library)
        set(what "${library}")
        string(PREPEND includes "#include <${library}/${library}_version.h>\n")
    endif()
    set(file "${PROJECT_BINARY_DIR}/include/${library}/${umbrella}.h")
    file(CONFIGURE OUTPUT "${file}" @ONLY CONTENT
"// SPDX-License-Identifier: MIT
// Everything public of ${what} in one include.
#pragma once

${includes}")
    install(FILES "${file}" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${library})
endfunction()
