kr_add_test(KrRenderAidsTest LABEL render LIBRARIES Kr::RendCore PkgConfig::GLX)
