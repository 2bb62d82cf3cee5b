# Whether the Python module is built: KR_BUILD_PYTHON. Not given, it is where everything for it is found.

# Debian's own interpreter first: another one that comes earlier in the PATH may have no numpy.
if(NOT DEFINED Python_EXECUTABLE AND NOT DEFINED Python_ROOT_DIR AND EXISTS /usr/bin/python3)
    set(Python_EXECUTABLE /usr/bin/python3)
endif()

set(kr_python_lacks)
if(DEFINED KR_BUILD_PYTHON AND NOT KR_BUILD_PYTHON)
    set(kr_python_lacks "KR_BUILD_PYTHON is off")
# Python would have to load the sanitizers before itself.
elseif(CMAKE_CXX_FLAGS MATCHES "-fsanitize" AND NOT KR_BUILD_PYTHON)
    set(kr_python_lacks "not under sanitizers")
else()
    find_package(Python 3.10 QUIET COMPONENTS Interpreter Development.Module NumPy)
    if(NOT Python_FOUND)
        set(kr_python_lacks "Python 3.10 or newer with its headers (python3-dev) and numpy (python3-numpy) was not found")
    else()
        find_package(pybind11 2.10 QUIET CONFIG)
        if(NOT pybind11_FOUND)
            set(kr_python_lacks "pybind11 (pybind11-dev) was not found")
        endif()
    endif()
    if(kr_python_lacks AND KR_BUILD_PYTHON)
        message(FATAL_ERROR "KR_BUILD_PYTHON: ${kr_python_lacks}")
    endif()
endif()
if(kr_python_lacks)
    message(STATUS "The Python module is left out: ${kr_python_lacks}")
    set(kr_build_python OFF)
else()
    message(STATUS "The Python module is built for ${Python_EXECUTABLE} (${Python_VERSION})")
    set(kr_build_python ON)
    # Relative to the prefix, as an installation into /usr/local has it.
    set(KR_PYTHON_INSTALL_DIR lib/python${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}/dist-packages
        CACHE PATH "Where the Python package is installed, below the prefix")
endif()
