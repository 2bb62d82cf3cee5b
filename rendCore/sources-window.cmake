target_sources(krRendCore PRIVATE
    KrContextRestorer.h
    KrGuestFrame.h
    KrRender2DSampleTool.cpp KrRender2DSampleTool.h
    KrRenderCaptureManager.cpp KrRenderCaptureManager.h
    KrRenderMorphLink.cpp KrRenderMorphLink.h
    KrRenderWindow.cpp KrRenderWindow.h
    KrRenderWindowParameters.cpp KrRenderWindowParameters.h
    KrSGBaseInputHandler.cpp KrSGBaseInputHandler.h
    KrSGWindow.cpp KrSGWindow.h KrSGWindowCapture.cpp KrSGWindowDecorations.cpp)
