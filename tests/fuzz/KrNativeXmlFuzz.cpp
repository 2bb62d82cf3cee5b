// Native system files.

#include <toolkit/system/KrVisualizableStatedSystem.h>

#include <tests/fuzz/NativeDocument.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KrVisualizableStatedSystem object;
    return fuzzDocument(object, data, size);
}
