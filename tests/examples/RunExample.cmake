# Runs COMMAND, which draws PICTURES: each must be there, show something, and differ from the others.
cmake_minimum_required(VERSION 3.25)

file(REMOVE ${PICTURES})
execute_process(COMMAND ${COMMAND} COMMAND_ERROR_IS_FATAL ANY)

set(seen)
foreach(picture IN LISTS PICTURES)
    file(SIZE ${picture} size)
    if(size LESS 3000) # one colour throughout makes a smaller file
        message(FATAL_ERROR "${picture} shows nothing: ${size} bytes")
    endif()
    file(SHA256 ${picture} sum)
    if(sum IN_LIST seen)
        message(FATAL_ERROR "${picture} shows the same as the one before")
    endif()
    list(APPEND seen ${sum})
endforeach()
