# Values, appearance, shapes and link axes.
target_sources(krRendCore PRIVATE
    KrLightProperties.cpp KrLightProperties.h
    KrMaterialProperties.cpp KrMaterialProperties.h
    KrMathRoutine.cpp KrMathRoutine.h
    KrRenderAxis.cpp KrRenderAxis.h
    KrRenderDeformationShape.cpp KrRenderDeformationShape.h
    KrRenderShape.cpp KrRenderShape.h
    KrRenderTypes.cpp KrRenderTypes.h
    KrSGTexture.cpp KrSGTexture.h
    KrTransformation.cpp KrTransformation.h)
