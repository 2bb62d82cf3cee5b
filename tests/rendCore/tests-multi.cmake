kr_add_test(KrMultiRenderWindowTest LABEL render LIBRARIES Kr::RendCore PkgConfig::GLX)
