# The camera as numbers, and what a drawn frame was.
target_sources(krRendCore PRIVATE
    KrCameraIntrinsics.cpp KrCameraIntrinsics.h
    KrDrawnProjection.cpp KrDrawnProjection.h
    KrFrameDescription.cpp KrFrameDescription.h
    KrOpticalFrame.cpp KrOpticalFrame.h)
# Boost's JSON reader still uses the global placeholders, and boost::bind says so in every build.
set_source_files_properties(KrFrameDescription.cpp PROPERTIES COMPILE_DEFINITIONS BOOST_BIND_GLOBAL_PLACEHOLDERS)
