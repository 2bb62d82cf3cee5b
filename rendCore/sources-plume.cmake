# How plumes are drawn among solids, and where their shaders are found.
target_sources(krRendCore PRIVATE
    KrPlumeDrawCallback.cpp KrPlumeDrawCallback.h
    KrToolkitFolders.cpp KrToolkitFolders.h)
target_link_libraries(krRendCore PRIVATE ${CMAKE_DL_LIBS})
