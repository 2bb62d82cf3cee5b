# The scene model and the aids that hang under it.
target_sources(krRendCore PRIVATE
    KrRenderBoundingVolumes.cpp KrRenderBoundingVolumes.h
    KrRenderGridPhysicalExtent.cpp KrRenderGridPhysicalExtent.h
    KrRenderIntraLink.cpp KrRenderIntraLink.h
    KrRenderLink.cpp KrRenderLink.h
    KrRenderManipulator.cpp KrRenderManipulator.h
    KrRenderMassProperties.cpp KrRenderMassProperties.h
    KrRenderSelection.cpp KrRenderSelection.h)

# The plume shaders are read at run time, from below the folder that KR_TOOLKITS names. This is the build tree's one.
foreach(shader krPlumeShader.vert krPlumeShader.frag)
    configure_file(${shader} ${PROJECT_BINARY_DIR}/toolkits/software/render/src/rendCore/${shader} COPYONLY)
endforeach()
