# SPDX-License-Identifier: MIT
# Language level, warnings, sanitizers and the optional helpers ccache and mold for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_AUTOMOC ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")

find_program(BRIX_CCACHE ccache)
mark_as_advanced(BRIX_CCACHE)
if(BRIX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Precompiled headers are only cached when ccache may trust their defines and times.
    set(CMAKE_CXX_COMPILER_LAUNCHER
        "${CMAKE_COMMAND}" -E env
        "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        "${BRIX_CCACHE}")
endif()

find_program(BRIX_MOLD mold)
mark_as_advanced(BRIX_MOLD)
if(BRIX_MOLD AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    add_link_options(-fuse-ld=mold)
    # mold 1.10 lets what becomes read-only begin with the last bytes of the code. Where these lie on
    # a page of their own, the program does not start.
    add_link_options(LINKER:-z,separate-code)
endif()

if(BRIX_SANITIZE)
    # -O1 keeps the sanitized tests fast enough for every run and the stacks readable.
    add_compile_options(-fsanitize=${BRIX_SANITIZE} -fno-omit-frame-pointer -O1)
    add_link_options(-fsanitize=${BRIX_SANITIZE})
    if(BRIX_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
        # Qt is built without run-time type data for this check.
        add_compile_options(-fno-sanitize=vptr)
        add_link_options(-fno-sanitize=vptr)
    endif()
endif()

if(BRIX_COVERAGE)
    add_compile_options(--coverage)
    add_link_options(--coverage)
endif()

# What every target of the project is compiled with; never part of an exported interface.
function(brix_compile_settings target)
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY QT_NO_URL_CAST_FROM_STRING
        QT_NO_KEYWORDS QT_NO_FOREACH QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
            -Wformat=2 -Wold-style-cast -Wunused)
        if(BRIX_WARNINGS_AS_ERRORS)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            # g++ needs this so that ccache can hash what the precompiled header was made of.
            target_compile_options(${target} PRIVATE -fpch-preprocess)
            if(BRIX_SANITIZE)
                # Sanitizer instrumentation makes g++ see uses that cannot happen, inside Qt's inlines.
                target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized -Wno-stringop-overflow)
                if(BRIX_SANITIZE MATCHES "thread")
                    target_compile_options(${target} PRIVATE -Wno-tsan)
                endif()
            endif()
        endif()
    endif()
endfunction()
