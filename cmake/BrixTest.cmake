# SPDX-License-Identifier: MIT

# Qt6::Test defines the folders of each program, which a precompiled header of all cannot share.
function(brix_drop_test_folders target)
    target_compile_options(${target} PRIVATE -UQT_TESTCASE_BUILDDIR -UQT_TESTCASE_SOURCEDIR)
endfunction()

# Ends a test that hangs. The thread sanitizer makes all code several times slower, and no bound that
# a test states for itself changes with that.
function(brix_set_test_timeout name seconds)
    if(BRIX_SANITIZE MATCHES "thread")
        math(EXPR seconds "5 * ${seconds}")
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${seconds})
endfunction()

# brix_add_class_test(<stem> [LABELS …] [TIMEOUT seconds] [SOURCES …] [LIBRARIES …] [RUN_SERIAL]):
# the test program tst_<stem> made of tst_<stem>.cpp beside the calling list file.
function(brix_add_class_test stem)
    cmake_parse_arguments(ARG "RUN_SERIAL" "TIMEOUT" "LABELS;SOURCES;LIBRARIES" ${ARGN})
    set(name tst_${stem})
    add_executable(${name} ${name}.cpp ${ARG_SOURCES})
    brix_compile_settings(${name})
    target_link_libraries(${name} PRIVATE
        brixlib::brixlib brixlib::brixsec brixlib::brixrt brix_test_shared Qt6::Test ${ARG_LIBRARIES})
    brix_drop_test_folders(${name})
    if(BRIX_SANITIZE MATCHES "thread")
        target_sources(${name} PRIVATE $<TARGET_OBJECTS:brix_tsan_qt>)
    endif()
    target_precompile_headers(${name} REUSE_FROM brix_test_pch)
    # The empty moc file of a program whose only object class is in its source needs no header.
    set_source_files_properties(
        "${CMAKE_CURRENT_BINARY_DIR}/${name}_autogen/mocs_compilation.cpp"
        PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY "${PROJECT_SOURCE_DIR}/tests"
        OUTPUT_VARIABLE folder)
    add_test(NAME ${folder}/${name} COMMAND ${name})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    brix_set_test_timeout(${folder}/${name} ${ARG_TIMEOUT})
    set_tests_properties(${folder}/${name} PROPERTIES LABELS "${ARG_LABELS}")
    if(ARG_RUN_SERIAL)
        set_tests_properties(${folder}/${name} PROPERTIES RUN_SERIAL ON)
    endif()
endfunction()

# brix_add_test_without_glib(<stem>): runs tst_<stem> once more, with the event loop of Qt that does
# without GLib, which waits and is woken differently.
function(brix_add_test_without_glib stem)
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY "${PROJECT_SOURCE_DIR}/tests"
        OUTPUT_VARIABLE folder)
    set(name ${folder}/tst_${stem}_without_glib)
    add_test(NAME ${name} COMMAND tst_${stem})
    brix_set_test_timeout(${name} 120)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT QT_NO_GLIB=1)
endfunction()

# brix_add_benchmark(<stem> [SOURCES …]): the Google Benchmark program bench_<stem>.
function(brix_add_benchmark stem)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    set(name bench_${stem})
    add_executable(${name} ${name}.cpp ${ARG_SOURCES})
    brix_compile_settings(${name})
    target_link_libraries(${name} PRIVATE brixlib::brixlib benchmark::benchmark ${ARG_LIBRARIES})
endfunction()
