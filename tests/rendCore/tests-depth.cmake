foreach(test KrDepthCaptureTest KrOrientationTest)
    kr_add_test(${test} LABEL render LIBRARIES Kr::RendCore PkgConfig::GLX)
endforeach()
