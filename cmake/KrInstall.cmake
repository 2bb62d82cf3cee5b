# What `cmake --install` puts where: the libraries with their package files (CMake's and pkg-config's), the headers under
# include/krRendCore, krrender with its manual page and its completion for bash, the samples and shader files below
# share/krRendCore, and README, changelog, licence, docs and the examples below share/doc. The target `uninstall` removes
# what the last installation of this build has put there.
#
# The render core looks for its shader files below $KR_TOOLKITS; of an installed tree that is PREFIX/share/krRendCore.

include(CMakePackageConfigHelpers)

set(kr_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KrRendCore)
set(kr_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(kr_data_dir ${CMAKE_INSTALL_DATADIR}/krRendCore)
file(RELATIVE_PATH kr_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})

# kr_install_library(COMPONENT DESCRIPTION text [REQUIRES package ...] [LIBS flag ...]): the library krCOMPONENT, its
# headers, its targets for find_package's COMPONENT, and its pkg-config file. REQUIRES and LIBS say for pkg-config what
# the target's PUBLIC libraries say for CMake.
function(kr_install_library component)
    cmake_parse_arguments(ARG "" "DESCRIPTION" "REQUIRES;LIBS" ${ARGN})
    install(TARGETS kr${component} EXPORT KrRendCore${component}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krRendCore)
    install(EXPORT KrRendCore${component}Targets NAMESPACE Kr:: DESTINATION ${kr_package_dir})

    set(kr_pc_name kr${component})
    set(kr_pc_description ${ARG_DESCRIPTION})
    list(JOIN ARG_REQUIRES " " kr_pc_requires)
    list(JOIN ARG_LIBS " " kr_pc_libs)
    configure_file(cmake/kr.pc.in kr${component}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/kr${component}.pc DESTINATION ${kr_pc_dir})
endfunction()

set(same "= ${PROJECT_VERSION}")
kr_install_library(Toolkit DESCRIPTION "What a client says about robots and windows")
kr_install_library(RendCore DESCRIPTION "Render core for robots on OpenSceneGraph"
    REQUIRES "krToolkit ${same}" ${KR_OSG_MODULES} LIBS -lboost_date_time)
kr_install_library(Picture DESCRIPTION "Framing, lamps and motions for programs that make pictures of robots"
    REQUIRES "krRendCore ${same}")
kr_install_library(Import DESCRIPTION "Reads robot descriptions and their meshes" REQUIRES "krToolkit ${same}")
kr_install_library(Dataset DESCRIPTION "Makes data sets of pictures of robots" REQUIRES "krPicture ${same}")

install(TARGETS krrender RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET krrenderPages)
    install(FILES ${PROJECT_BINARY_DIR}/krrender.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${PROJECT_BINARY_DIR}/krrender.bash RENAME krrender
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()

install(FILES rendCore/plume/krPlumeShader.vert rendCore/plume/krPlumeShader.frag
    DESTINATION ${kr_data_dir}/software/render/src/rendCore)
install(DIRECTORY samples DESTINATION ${kr_data_dir})
install(FILES dataset/krDatasetRecipe.schema.json DESTINATION ${kr_data_dir})
# The docs link to each of these.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

configure_package_config_file(cmake/KrRendCoreConfig.cmake.in KrRendCoreConfig.cmake
    INSTALL_DESTINATION ${kr_package_dir}
    PATH_VARS kr_data_dir)
# Before version 1 a minor version may change an interface.
write_basic_package_version_file(KrRendCoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/KrRendCoreConfig.cmake
    ${PROJECT_BINARY_DIR}/KrRendCoreConfigVersion.cmake
    DESTINATION ${kr_package_dir})

if(PROJECT_IS_TOP_LEVEL)
    add_custom_target(uninstall
        COMMAND ${CMAKE_COMMAND} -D KR_MANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt
            -P ${PROJECT_SOURCE_DIR}/cmake/KrUninstall.cmake)
endif()
