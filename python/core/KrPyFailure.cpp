#include "KrPyFailure.h"

#include "KrPyText.h"

namespace
{

const char* nameOf(KrPyFailure::Kind kind)
{
    switch (kind) {
    case KrPyFailure::Kind::Argument:
        break;
    case KrPyFailure::Kind::Format:
        return "FormatError";
    case KrPyFailure::Kind::MissingFile:
        return "MissingFileError";
    case KrPyFailure::Kind::Name:
        return "UnknownNameError";
    case KrPyFailure::Kind::Render:
        return "RenderError";
    case KrPyFailure::Kind::Dataset:
        return "DatasetError";
    }
    return nullptr;
}

/// The class is looked up when it is needed: the module is made before the package that holds it.
py::object classOf(KrPyFailure::Kind kind)
{
    const char* const name = nameOf(kind);
    return name ? py::object(py::module_::import("krrendcore._errors").attr(name))
                : py::reinterpret_borrow<py::object>(PyExc_ValueError);
}

} // namespace

void KrPyFailure::registerTranslator()
{
    py::register_local_exception_translator([](std::exception_ptr exception) {
        try {
            std::rethrow_exception(exception);
        } catch (const KrPyFailure& failure) {
            PyErr_SetObject(classOf(failure.kind()).ptr(), krPyText(failure.what()).ptr());
        }
    });
}
