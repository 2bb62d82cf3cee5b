foreach(class KrMathRoutine KrTransformation KrRenderTypes KrLightProperties KrSGTexture KrMaterialProperties
              KrRenderShape KrRenderDeformationShape KrRenderAxis)
    kr_add_test(${class}Test LABEL unit LIBRARIES Kr::RendCore)
endforeach()
kr_add_test(KrRenderShapeRenderTest LABEL render LIBRARIES Kr::RendCore PkgConfig::GLX)
