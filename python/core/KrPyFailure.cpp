#include "KrPyFailure.h"

#include "KrPyText.h"

namespace
{

/// The class is looked up when it is needed: the module is made before the package that holds it.
py::object classOf(KrPyFailure::Kind kind)
{
    switch (kind) {
    case KrPyFailure::Kind::Argument:
        return py::reinterpret_borrow<py::object>(PyExc_ValueError);
    case KrPyFailure::Kind::Format:
        return py::module_::import("krrendcore._errors").attr("FormatError");
    case KrPyFailure::Kind::MissingFile:
        return py::module_::import("krrendcore._errors").attr("MissingFileError");
    case KrPyFailure::Kind::Name:
        return py::module_::import("krrendcore._errors").attr("UnknownNameError");
    case KrPyFailure::Kind::Render:
        break;
    }
    return py::module_::import("krrendcore._errors").attr("RenderError");
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
