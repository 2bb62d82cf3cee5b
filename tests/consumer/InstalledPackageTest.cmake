# Installs the build into a folder, moves that folder, and lives on what is there: what is installed must be complete,
# must not know where it was built, must hand on what its headers need, and must go again without a trace.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/CheckLinks.cmake)

set(first ${KR_WORK_DIR}/first)
set(moved ${KR_WORK_DIR}/moved)
set(client ${KR_WORK_DIR}/client)
set(docs ${moved}/${KR_DOCDIR})
set(manifest ${KR_BINARY_DIR}/install_manifest.txt)
file(REMOVE_RECURSE ${first} ${moved} ${client})
file(MAKE_DIRECTORY ${client})

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(expect_picture path)
    file(SIZE ${path} size)
    if(size LESS 3000) # one colour throughout makes a smaller file
        message(FATAL_ERROR "${path} shows nothing: ${size} bytes")
    endif()
endfunction()

# expect_text(TEXT PATTERN): TEXT is what was printed
function(expect_text text pattern)
    if(NOT text MATCHES "${pattern}")
        message(FATAL_ERROR "\"${pattern}\" was expected in: ${text}")
    endif()
endfunction()

# configure(SOURCES NAME ...): a client project in ${client}/NAME
function(configure sources name)
    run(${CMAKE_COMMAND} -S ${sources} -B ${client}/${name} -G ${KR_GENERATOR} -D CMAKE_PREFIX_PATH=${moved}
        -D CMAKE_CXX_COMPILER=${KR_COMPILER} -D CMAKE_CXX_COMPILER_LAUNCHER=${KR_LAUNCHER} ${ARGN})
endfunction()

# What a user has installed from this build stays for the user to uninstall.
if(EXISTS ${manifest})
    file(RENAME ${manifest} ${manifest}.kept)
endif()
function(restore_manifest)
    file(REMOVE ${manifest})
    if(EXISTS ${manifest}.kept)
        file(RENAME ${manifest}.kept ${manifest})
    endif()
endfunction()

# Nothing but a file of somebody else is left of what was installed.
execute_process(COMMAND ${CMAKE_COMMAND} --install ${KR_BINARY_DIR} --prefix ${first} RESULT_VARIABLE status)
file(WRITE ${first}/${KR_DATADIR}/krRendCore/samples/own.xml "")
execute_process(COMMAND ${CMAKE_COMMAND} -D KR_MANIFEST=${manifest} -P ${KR_SOURCE_DIR}/cmake/KrUninstall.cmake
    RESULT_VARIABLE uninstalled)
file(GLOB_RECURSE left RELATIVE ${first} ${first}/*)
file(GLOB include LIST_DIRECTORIES true ${first}/include/*)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${KR_BINARY_DIR} --prefix ${first} RESULT_VARIABLE again)
restore_manifest()
if(NOT "${status} ${uninstalled} ${again}" STREQUAL "0 0 0")
    message(FATAL_ERROR "cannot install (${status}), uninstall (${uninstalled}) and install again (${again})")
endif()
if(include OR NOT left STREQUAL "${KR_DATADIR}/krRendCore/samples/own.xml")
    message(FATAL_ERROR "uninstalling has left: ${left} ${include}")
endif()
file(RENAME ${first} ${moved})

file(GLOB_RECURSE package_files ${moved}/*.cmake ${moved}/*.pc)
foreach(file IN LISTS package_files)
    file(STRINGS ${file} lines REGEX "${KR_SOURCE_DIR}|${KR_BINARY_DIR}")
    if(lines)
        message(FATAL_ERROR "${file} names the tree it was built from: ${lines}")
    endif()
endforeach()
kr_check_links(${docs})

configure(${docs}/examples/consumer consumer)
run(${CMAKE_COMMAND} --build ${client}/consumer)
set(samples ${moved}/${KR_DATADIR}/krRendCore/samples)
run(${client}/consumer/consumer ${samples}/industrial_arm.xml ${client}/native.png)
run(${client}/consumer/consumer ${samples}/industrial_arm.urdf ${client}/urdf.png)
run(${client}/consumer/consumer ${samples}/industrial_arm.urdf ${client}/selected.png link_3)
run(${moved}/${KR_BINDIR}/krrender ${samples}/textured_rover.xml -o ${client}/krrender.png)
foreach(picture native urdf selected krrender)
    expect_picture(${client}/${picture}.png)
endforeach()

# Each header alone.
configure(${CMAKE_CURRENT_LIST_DIR}/headers headers -D CMAKE_CXX_FLAGS=-O0)
run(${CMAKE_COMMAND} --build ${client}/headers)

if(KR_HAS_QT)
    configure(${docs}/examples/qt qt -D CMAKE_CXX_FLAGS=-O0)
    run(${CMAKE_COMMAND} --build ${client}/qt)
endif()

# Parts of the package; what cannot be had is told with its reason.
file(WRITE ${client}/parts/CMakeLists.txt [[
cmake_minimum_required(VERSION 3.25)
project(Parts LANGUAGES CXX)
find_package(KrRendCore REQUIRED COMPONENTS Import OPTIONAL_COMPONENTS Picture Sound)
if(NOT TARGET Kr::Import OR NOT TARGET Kr::Toolkit OR NOT TARGET Kr::Picture OR KrRendCore_Sound_FOUND)
    message(FATAL_ERROR "the wrong parts")
endif()
find_package(KrRendCore QUIET COMPONENTS Sound Toolkit)
message(STATUS "found: ${KrRendCore_FOUND}: ${KrRendCore_NOT_FOUND_MESSAGE}")
]])
execute_process(COMMAND ${CMAKE_COMMAND} -S ${client}/parts -B ${client}/parts -G ${KR_GENERATOR}
        -D CMAKE_PREFIX_PATH=${moved} -D CMAKE_CXX_COMPILER=${KR_COMPILER}
    OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
expect_text("${text}" "found: 0: Sound: there is no such component")
file(GLOB picture_targets ${moved}/${KR_LIBDIR}/cmake/KrRendCore/KrRendCorePicture*)
file(REMOVE ${picture_targets})
execute_process(COMMAND ${CMAKE_COMMAND} -S ${client}/parts -B ${client}/parts -D CMAKE_PREFIX_PATH=${moved}
    OUTPUT_VARIABLE text ERROR_VARIABLE text RESULT_VARIABLE status)
expect_text("${text}" "the wrong parts")

# pkg-config knows the folder from where its file lies.
if(KR_PKG_CONFIG)
    set(ENV{PKG_CONFIG_PATH} ${moved}/${KR_LIBDIR}/pkgconfig)
    foreach(program "toolkit_client.cpp:krToolkit" "consumer.cpp:krPicture krImport")
        string(REPLACE ":" ";" program "${program}")
        list(POP_FRONT program source packages)
        find_file(path ${source} PATHS ${CMAKE_CURRENT_LIST_DIR} ${docs}/examples/consumer
            NO_DEFAULT_PATH NO_CACHE REQUIRED)
        separate_arguments(packages)
        execute_process(COMMAND ${KR_PKG_CONFIG} --cflags --libs ${packages}
            OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        separate_arguments(flags UNIX_COMMAND "${flags}")
        run(${KR_COMPILER} -std=c++17 ${path} -o ${client}/packaged ${flags} -Wl,-rpath,${moved}/${KR_LIBDIR})
        unset(path)
    endforeach()
    run(${client}/packaged ${samples}/industrial_arm.xml ${client}/packaged.png)
    expect_picture(${client}/packaged.png)
endif()

# What was made from the program's options.
file(READ ${moved}/${KR_MANDIR}/man1/krrender.1 page)
expect_text("${page}" "\n\\.SS Output\n.*depth.*\n\\.SH EXAMPLES\n.*\n\\.SH EXIT STATUS\n0 done")
find_program(bash bash)
if(bash)
    file(WRITE ${client}/complete.sh [[
source "$1"
try() { COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _krrender; printf '%s|' "${COMPREPLY[@]}"; }
cd "$2"
try krrender --depth-
try krrender a.urdf --depth-kind = pl
try krrender a.urdf --show axes,vol
try krrender industrial_arm.x
try krrender a.urdf --fov ''
]])
    execute_process(
        COMMAND ${bash} ${client}/complete.sh ${moved}/${KR_DATADIR}/bash-completion/completions/krrender ${samples}
        OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    if(NOT text STREQUAL "--depth-kind|--depth-preview|planar|axes,volumes|industrial_arm.xml||")
        message(FATAL_ERROR "completed: ${text}")
    endif()
endif()
