# What `cmake --install` puts where: the libraries and their package files, the headers under include/krRendCore,
# krrender, the samples and shader files below share/krRendCore, and README, changelog, licence and docs below share/doc.
#
# The render core looks for its shader files below $KR_TOOLKITS; of an installed tree that is PREFIX/share/krRendCore.

include(CMakePackageConfigHelpers)

set(kr_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KrRendCore)
set(kr_data_dir ${CMAKE_INSTALL_DATADIR}/krRendCore)

install(TARGETS krToolkit krRendCore krPicture krImport
    EXPORT KrRendCoreTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krRendCore)
install(EXPORT KrRendCoreTargets NAMESPACE Kr:: DESTINATION ${kr_package_dir})
install(TARGETS krrender RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(FILES rendCore/plume/krPlumeShader.vert rendCore/plume/krPlumeShader.frag
    DESTINATION ${kr_data_dir}/software/render/src/rendCore)
install(DIRECTORY samples DESTINATION ${kr_data_dir})
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})

configure_package_config_file(cmake/KrRendCoreConfig.cmake.in KrRendCoreConfig.cmake
    INSTALL_DESTINATION ${kr_package_dir}
    PATH_VARS kr_data_dir)
# Before version 1 a minor version may change an interface.
write_basic_package_version_file(KrRendCoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/KrRendCoreConfig.cmake
    ${PROJECT_BINARY_DIR}/KrRendCoreConfigVersion.cmake
    DESTINATION ${kr_package_dir})
