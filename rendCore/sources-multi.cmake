# Several views in one window.
target_sources(krRendCore PRIVATE KrMultiRenderWindow.cpp KrMultiRenderWindow.h)
