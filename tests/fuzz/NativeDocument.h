#pragma once

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/xml/KrXmlObject.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

/// Reads the bytes into `object`. What is read must be written and read back as the same: else the process ends.
inline int fuzzDocument(KrXmlObject& object, const std::uint8_t* data, std::size_t size)
{
    Kr::Print::instance()->setSink([](Kr::Print::Type, const std::string&) {});
    if (!object.readBuffer(reinterpret_cast<const char*>(data), size)) {
        return 0;
    }
    std::string text;
    std::string again;
    const std::unique_ptr<KrXmlObject> copy(object.newObject());
    if (!object.writeBuffer(text) || !copy->readBuffer(text.data(), text.size()) || !copy->equality(&object) ||
        !copy->writeBuffer(again) || again != text) {
        std::abort();
    }
    return 0;
}
