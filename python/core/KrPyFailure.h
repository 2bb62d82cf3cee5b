#pragma once

#include <stdexcept>
#include <string>

/// A failure on its way to Python, where it becomes the exception class of that name (krrendcore/_errors.py).
class KrPyFailure : public std::runtime_error
{
public:
    enum class Kind
    {
        Argument,    ///< ValueError
        Format,      ///< FormatError: a file holds nothing of what is read
        MissingFile, ///< MissingFileError
        Name,        ///< UnknownNameError
        Render,      ///< RenderError
        Dataset      ///< DatasetError
    };

    /// @param sentence  without a full stop
    KrPyFailure(Kind kind, const std::string& sentence)
        : std::runtime_error(sentence)
        , m_kind(kind)
    {
    }

    /// Which exception it becomes.
    Kind kind() const { return m_kind; }

    /// To be called once, while the module is made: from then on these failures are such exceptions.
    static void registerTranslator();

private:
    Kind m_kind;
};
