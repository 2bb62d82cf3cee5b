// States of a system as XML, put into a system as the program does.
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/system/KrStatedSystem.h>

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
    static KrStatedSystem system = [] {
        KrIndividualManipulator arm("arm");
        KrManipulatorLink link("link");
        link.jointKinematics().setType(KrJointKinematics::Type::Revolute);
        arm.addChildLink(link);
        KrManipulatorSystem all;
        all.manipulators().push_back(arm);
        return KrStatedSystem(all);
    }();
    KrManipulatorSystemState state;
    if (!isQuiet || !state.readBuffer(reinterpret_cast<const char*>(data), size, "text")) {
        return 0;
    }
    system.setSystemState(state);
    // What is read can be written, and read again as the same.
    std::string text;
    KrManipulatorSystemState again;
    if (!state.writeBuffer(text) || !again.readBuffer(text.data(), text.size(), "text")) {
        std::abort();
    }
    return 0;
}
