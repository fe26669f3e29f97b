# SPDX-License-Identifier: MIT
# The installed package: find_package(brixlib 2.0 REQUIRED) gives brixlib::brixlib,
# brixlib::brixrt and brixlib::brixsec.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/brixlib")
# Not at the top of the build folder: find_package() looks there when its bin is in PATH.
set(package_build_dir "${PROJECT_BINARY_DIR}/package")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/brixlibConfig.cmake.in"
    "${package_build_dir}/brixlibConfig.cmake"
    INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${package_build_dir}/brixlibConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${package_build_dir}/brixlibConfig.cmake"
    "${package_build_dir}/brixlibConfigVersion.cmake"
    DESTINATION "${package_dir}")
install(EXPORT brixlibTargets NAMESPACE brixlib:: DESTINATION "${package_dir}")
