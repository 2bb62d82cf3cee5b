kr_add_test(KrTextureMarkerTest LABEL render SOURCES KrTextureMarkerTest.cpp AllocationCounter.cpp
    LIBRARIES Kr::RendCore PkgConfig::GLX)
