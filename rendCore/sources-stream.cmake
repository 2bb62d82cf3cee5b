target_sources(krRendCore PRIVATE KrFrameStream.cpp KrFrameStream.h)
