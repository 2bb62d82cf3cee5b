// States of systems.

#include <toolkit/system/KrManipulatorSystemState.h>

#include <tests/fuzz/NativeDocument.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KrManipulatorSystemState object;
    return fuzzDocument(object, data, size);
}
