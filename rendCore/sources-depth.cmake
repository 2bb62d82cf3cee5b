target_sources(krRendCore PRIVATE
    KrDepthCapture.cpp KrDepthCapture.h)
