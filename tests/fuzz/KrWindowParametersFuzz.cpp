// Window parameters.

#include <rendCore/system/KrRenderWindowParameters.h>

#include <tests/fuzz/NativeDocument.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KrRenderWindowParameters object;
    return fuzzDocument(object, data, size);
}
