kr_add_test(KrFrameStreamTest LABEL render SOURCES KrFrameStreamTest.cpp AllocationCounter.cpp
    LIBRARIES Kr::RendCore PkgConfig::GLX)

kr_add_program(KrOpenWindowsAtExit SOURCES KrOpenWindowsAtExit.cpp LIBRARIES Kr::RendCore)
add_test(NAME KrOpenWindowsAtExit COMMAND KrOpenWindowsAtExit)
# It says nothing.
set_tests_properties(KrOpenWindowsAtExit PROPERTIES
    LABELS render TIMEOUT 60 ENVIRONMENT "KR_WINDOW=egl" FAIL_REGULAR_EXPRESSION ".")
