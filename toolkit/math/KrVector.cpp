#include <toolkit/math/KrVector.h>

#include <cmath>

double KrVector::length() const
{
    // Neither overflows nor loses small components, as the root of a sum of squares would.
    return std::hypot(x(), y(), z());
}

double KrVector::normalize()
{
    const double before = length();
    // A vector without length, or with NaN in it, has no direction and stays as it is; the length returned says so.
    if (before > 0.0) {
        set(x() / before, y() / before, z() / before);
    }
    return before;
}

// False for infinity and for NaN.
bool KrVector::isFinite() const
{
    return std::isfinite(x()) && std::isfinite(y()) && std::isfinite(z());
}

// One text with blanks between the numbers, as lists of vectors are written.
void KrXmlPlain<KrVector>::append(std::string& out, const KrVector& value)
{
    KrXmlText::append(out, value.x());
    out += ' ';
    KrXmlText::append(out, value.y());
    out += ' ';
    KrXmlText::append(out, value.z());
}

// Taken off the front of `text`, so that vectors can follow one another in a list; a failure may leave some set.
bool KrXmlPlain<KrVector>::take(std::string_view& text, KrVector& value)
{
    return KrXmlText::take(text, value[0]) && KrXmlText::take(text, value[1]) && KrXmlText::take(text, value[2]);
}
