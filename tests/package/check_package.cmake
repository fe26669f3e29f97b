# SPDX-License-Identifier: MIT
# Installs the build into a temporary prefix, moves that elsewhere, and uses it as a stranger would.
#   cmake -DBUILD=… -DSOURCE=… -DWORK=… -DGENERATOR=… -DCOMPILER=… -DTYPE=… -DQT=… -DVERSION=…
#     -DTOOL=… -DHEADERS=<file with a header a line> -P check_package.cmake

# Runs a command and stops the test with its output if it fails.
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "${command}\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

# What the build's own environment would find must not help the installed programs.
unset(ENV{LD_LIBRARY_PATH})
unset(ENV{CMAKE_PREFIX_PATH})

file(REMOVE_RECURSE "${WORK}")
run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${WORK}/first")
set(prefix "${WORK}/prefix")
file(RENAME "${WORK}/first" "${prefix}")

# Every public header is there, and no private one.
file(STRINGS "${HEADERS}" headers)
foreach(header IN LISTS headers)
    if(NOT EXISTS "${prefix}/include/${header}")
        message(FATAL_ERROR "not installed: ${header}")
    endif()
endforeach()
file(GLOB_RECURSE private "${prefix}/include/*_p.h")
if(private)
    message(FATAL_ERROR "installed by mistake: ${private}")
endif()

# Nothing leads back to where it was built.
file(GLOB_RECURSE texts "${prefix}/*.cmake" "${prefix}/include/*.h")
foreach(file IN LISTS texts)
    file(READ "${file}" content)
    foreach(place IN ITEMS "${BUILD}" "${SOURCE}" "${WORK}")
        string(FIND "${content}" "${place}" at)
        if(NOT at EQUAL -1)
            message(FATAL_ERROR "${file} names ${place}")
        endif()
    endforeach()
endforeach()

set(configure "${CMAKE_COMMAND}" -G "${GENERATOR}" "-DCMAKE_CXX_COMPILER=${COMPILER}"
    "-DCMAKE_BUILD_TYPE=${TYPE}" "-DCMAKE_PREFIX_PATH=${prefix}" "-DQt6_DIR=${QT}")

run(${configure} -S "${SOURCE}/tests/package/consumer" -B "${WORK}/consumer")
run("${CMAKE_COMMAND}" --build "${WORK}/consumer")
run("${WORK}/consumer/consumer")
if(NOT output STREQUAL "brixlib ${VERSION}\n")
    message(FATAL_ERROR "the consumer printed: ${output}")
endif()

# A newer major version is not there.
execute_process(
    COMMAND ${configure} -DWANTED_VERSION=3.0
        -S "${SOURCE}/tests/package/consumer" -B "${WORK}/consumer3"
    RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE output)
if(result EQUAL 0 OR NOT output MATCHES "brixlibConfig.cmake, version: ${VERSION}")
    message(FATAL_ERROR "version 3.0 was accepted, or refused for another reason:\n${output}")
endif()

run(${configure} -S "${SOURCE}/examples" -B "${WORK}/examples")
run("${CMAKE_COMMAND}" --build "${WORK}/examples")

# The installed tool finds the libraries beside it.
if(TOOL)
    run("${prefix}/bin/brix" --version)
endif()

file(REMOVE_RECURSE "${WORK}")
