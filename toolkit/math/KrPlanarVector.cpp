#include <toolkit/math/KrPlanarVector.h>

void KrXmlPlain<KrPlanarVector>::append(std::string& out, const KrPlanarVector& value)
{
    KrXmlText::append(out, value.u());
    out += ' ';
    KrXmlText::append(out, value.v());
}

bool KrXmlPlain<KrPlanarVector>::take(std::string_view& text, KrPlanarVector& value)
{
    double u = 0.0;
    double v = 0.0;
    // Taken off the front of `text`, so that vectors can follow one another in a list.
    const bool ok = KrXmlText::take(text, u) && KrXmlText::take(text, v);
    value = KrPlanarVector(u, v);
    return ok;
}
