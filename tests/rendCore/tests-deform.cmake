kr_add_test(KrRenderDeformationTest LABEL render SOURCES KrRenderDeformationTest.cpp AllocationCounter.cpp
    LIBRARIES Kr::RendCore PkgConfig::GLX)
