# Marks on the textures of shapes.
target_sources(krRendCore PRIVATE KrTextureMarker.cpp KrTextureMarker.h)
