kr_add_test(KrDepthCaptureTest LABEL render LIBRARIES Kr::RendCore PkgConfig::GLX)
