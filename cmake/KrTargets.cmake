# What every target of ours shares.

include(CheckCXXCompilerFlag)
include(GNUInstallDirs)

check_cxx_compiler_flag("-msse2 -mfpmath=sse" KR_HAS_SSE_MATH)

# Compiles again only what changed, in a second build folder too.
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(KR_CCACHE ccache)
    if(KR_CCACHE)
        set(CMAKE_CXX_COMPILER_LAUNCHER ${KR_CCACHE})
    endif()
endif()

# An installed tree can be moved: what is in it finds the libraries from where it is itself.
file(RELATIVE_PATH KR_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

# kr_configure_target(NAME): warnings are errors, one include root, sanitizers where asked for.
function(kr_configure_target name)
    target_compile_features(${name} PUBLIC cxx_std_17)
    target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Woverloaded-virtual -Werror)
    # GCC 12 vectorises double -> float -> double away from -O2 on, and with it the rounding to single precision.
    string(TOUPPER "${CMAKE_BUILD_TYPE}" type)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${type}}" MATCHES "-O[23s]")
        target_compile_options(${name} PRIVATE -fno-tree-slp-vectorize)
    endif()
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        # Files beyond 2 GiB, and those whose inode takes more than 32 bits.
        target_compile_definitions(${name} PRIVATE _FILE_OFFSET_BITS=64)
        # The 387 of x86 keeps more digits than a double or a float has, and rounds them when it likes.
        if(KR_HAS_SSE_MATH)
            target_compile_options(${name} PRIVATE -msse2 -mfpmath=sse)
        endif()
    endif()
    # Calls take more stack there, freed memory is kept back, and allocations are not ours to count.
    if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=[a-z,]*(address|thread)")
        target_compile_definitions(${name} PRIVATE KR_SANITIZED)
    endif()
    # GCC's sanitizers hide from it what boost::optional has set: a warning about every empty one.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        target_compile_options(${name} PRIVATE -Wno-maybe-uninitialized)
    endif()
endfunction()

# kr_add_library(NAME ALIAS Kr::Alias): a shared library whose sources its folders add with target_sources: what is
# installed to the file set HEADERS, the rest privately.
function(kr_add_library name)
    cmake_parse_arguments(ARG "" "ALIAS" "" ${ARGN})
    add_library(${name} SHARED)
    add_library(${ARG_ALIAS} ALIAS ${name})
    kr_configure_target(${name})
    string(REPLACE "Kr::" "" export_name ${ARG_ALIAS})
    set_target_properties(${name} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME ${export_name}
        INSTALL_RPATH "$ORIGIN")
    target_include_directories(${name} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/krRendCore>)
    target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR})
endfunction()

# kr_add_program(NAME SOURCES a.cpp ... LIBRARIES Kr::X ...)
function(kr_add_program name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    kr_configure_target(${name})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES})
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/${KR_BIN_TO_LIB}")
endfunction()

# The command that gives a program a virtual screen.
find_program(KR_XVFB_RUN xvfb-run DOC "Runs the tests that need an X display")
set(kr_on_virtual_screen)
if(KR_XVFB_RUN)
    set(kr_on_virtual_screen ${KR_XVFB_RUN} -a -s "-screen 0 1280x1024x24")
endif()

# kr_add_test(NAME LABEL unit|render [VIRTUAL_SCREEN] [SOURCES a.cpp ...] LIBRARIES Kr::X ...): a GoogleTest program,
# NAME.cpp by default. Render tests need an OpenGL context and draw without a display; those that need a screen get a
# virtual one where there is one, so that they run anywhere and never on the developer's own, and DISPLAY otherwise.
function(kr_add_test name)
    cmake_parse_arguments(ARG "VIRTUAL_SCREEN" "LABEL" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT ARG_SOURCES)
        set(ARG_SOURCES ${name}.cpp)
    endif()
    kr_add_program(${name} SOURCES ${ARG_SOURCES} LIBRARIES ${ARG_LIBRARIES} GTest::gtest GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    # It runs once for each time it is compiled; optimising it takes longer than it saves.
    target_compile_options(${name} PRIVATE -O0)
    set(before)
    if(ARG_VIRTUAL_SCREEN)
        set(before ${kr_on_virtual_screen})
    endif()
    add_test(NAME ${name} COMMAND ${before} $<TARGET_FILE:${name}>)
    # What krrender keeps of meshes belongs into no developer's own folder.
    set_tests_properties(${name} PROPERTIES LABELS ${ARG_LABEL} TIMEOUT 600
        ENVIRONMENT "XDG_CACHE_HOME=${PROJECT_BINARY_DIR}/cache")
    if(ARG_LABEL STREQUAL "render" AND NOT ARG_VIRTUAL_SCREEN)
        set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT "KR_WINDOW=egl")
    endif()
endfunction()
