kr_add_test(KrOrbitInputHandlerTest LABEL render SOURCES KrOrbitInputHandlerTest.cpp AllocationCounter.cpp
    LIBRARIES Kr::RendCore PkgConfig::GLX)

# On a virtual screen where there is one, so that it runs anywhere and never on the developer's own; without, on DISPLAY.
kr_add_program(KrWindowInputTest SOURCES KrWindowInputTest.cpp
    LIBRARIES Kr::RendCore PkgConfig::GLX PkgConfig::X11 GTest::gtest GTest::gtest_main)
find_program(KR_XVFB_RUN xvfb-run DOC "Runs the tests that need an X display")
set(kr_on_virtual_screen)
if(KR_XVFB_RUN)
    set(kr_on_virtual_screen ${KR_XVFB_RUN} -a -s "-screen 0 1280x1024x24")
endif()
add_test(NAME KrWindowInputTest COMMAND ${kr_on_virtual_screen} $<TARGET_FILE:KrWindowInputTest>)
set_tests_properties(KrWindowInputTest PROPERTIES LABELS render TIMEOUT 600)
