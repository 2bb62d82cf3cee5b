#include <toolkit/math/KrVector.h>

#include <cmath>

double KrVector::length() const
{
    return std::hypot(x(), y(), z());
}

double KrVector::normalize()
{
    const double before = length();
    if (before > 0.0) {
        set(x() / before, y() / before, z() / before);
    }
    return before;
}

bool KrVector::isFinite() const
{
    return std::isfinite(x()) && std::isfinite(y()) && std::isfinite(z());
}

void KrXmlPlain<KrVector>::append(std::string& out, const KrVector& value)
{
    KrXmlText::append(out, value.x());
    out += ' ';
    KrXmlText::append(out, value.y());
    out += ' ';
    KrXmlText::append(out, value.z());
}

bool KrXmlPlain<KrVector>::take(std::string_view& text, KrVector& value)
{
    return KrXmlText::take(text, value[0]) && KrXmlText::take(text, value[1]) && KrXmlText::take(text, value[2]);
}
