# Installs the build into a folder, moves that folder, and builds and runs examples/consumer against it: what is
# installed must be complete, must not know where it was built, and must hand on what its headers need.
cmake_minimum_required(VERSION 3.25)

set(first ${KR_WORK_DIR}/first)
set(moved ${KR_WORK_DIR}/moved)
set(client ${KR_WORK_DIR}/client)
file(REMOVE_RECURSE ${first} ${moved} ${client})

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(expect_picture path)
    file(SIZE ${path} size)
    if(size LESS 3000) # one colour throughout makes a smaller file
        message(FATAL_ERROR "${path} shows nothing: ${size} bytes")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${KR_BINARY_DIR} --prefix ${first})
file(RENAME ${first} ${moved})

file(GLOB_RECURSE package_files ${moved}/*.cmake)
foreach(file IN LISTS package_files)
    file(STRINGS ${file} lines REGEX "${KR_SOURCE_DIR}|${KR_BINARY_DIR}")
    if(lines)
        message(FATAL_ERROR "${file} names the tree it was built from: ${lines}")
    endif()
endforeach()

run(${CMAKE_COMMAND} -S ${KR_SOURCE_DIR}/examples/consumer -B ${client} -G ${KR_GENERATOR}
    -D CMAKE_PREFIX_PATH=${moved} -D CMAKE_CXX_COMPILER=${KR_COMPILER})
run(${CMAKE_COMMAND} --build ${client})

set(samples ${moved}/${KR_DATADIR}/krRendCore/samples)
run(${client}/consumer ${samples}/industrial_arm.xml ${client}/native.png)
run(${client}/consumer ${samples}/industrial_arm.urdf ${client}/urdf.png)
run(${moved}/${KR_BINDIR}/krrender ${samples}/textured_rover.xml -o ${client}/krrender.png)
foreach(picture native urdf krrender)
    expect_picture(${client}/${picture}.png)
endforeach()
