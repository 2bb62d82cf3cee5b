// Descriptions of frames, whose cameras pictures are drawn with.
#include <rendCore/capture/KrFrameDescription.h>
#include <toolkit/foundation/KrPrint.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool isQuiet = [] {
        Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
        return true;
    }();
    KrFrameDescription frame;
    if (!isQuiet || !frame.readText(std::string(reinterpret_cast<const char*>(data), size), "text")) {
        return 0;
    }
    frame.actualPov();
    // What is read can be written, and read again.
    const std::string text = frame.json();
    KrFrameDescription again;
    if (!again.readText(text, "text") || again.width != frame.width || again.json().size() < 10) {
        std::abort();
    }
    frame.setPictureSize(7, 5);
    return 0;
}
