# SPDX-License-Identifier: MIT
# The installed package: find_package(brixlib 2.0 REQUIRED) gives brixlib::brixlib,
# brixlib::brixrt and brixlib::brixsec.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/brixlib")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/brixlibConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/brixlibConfig.cmake"
    INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/brixlibConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/brixlibConfig.cmake"
    "${PROJECT_BINARY_DIR}/brixlibConfigVersion.cmake"
    DESTINATION "${package_dir}")
install(EXPORT brixlibTargets NAMESPACE brixlib:: DESTINATION "${package_dir}")
