kr_add_test(KrClientStateTest LABEL render LIBRARIES Kr::RendCore PkgConfig::GLX)
