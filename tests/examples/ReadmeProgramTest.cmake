# Fails when the README's first program is not the example that the tests run.
cmake_minimum_required(VERSION 3.25)

file(READ ${KR_README} readme)
file(READ ${KR_PROGRAM} program)
string(FIND "${readme}" "${program}" place)
if(place EQUAL -1)
    message(FATAL_ERROR "README.md does not show ${KR_PROGRAM} as it is now")
endif()
