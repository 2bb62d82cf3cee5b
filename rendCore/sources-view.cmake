target_sources(krRendCore PRIVATE
    KrOrbitInputHandler.cpp KrOrbitInputHandler.h
    KrWindowInput.cpp KrWindowInput.h)
