#include <toolkit/deformation/KrEdgePoint.h>

// The share with all its digits: a point that moved would tear a cut open.
void KrXmlPlain<KrEdgePoint>::append(std::string& out, const KrEdgePoint& value)
{
    KrXmlText::append(out, value.a());
    out += ' ';
    KrXmlText::append(out, value.b());
    out += ' ';
    KrXmlText::append(out, value.t());
}

bool KrXmlPlain<KrEdgePoint>::take(std::string_view& text, KrEdgePoint& value)
{
    // All three before the value is assigned: other text leaves it as it was.
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    double t = 0.0;
    if (!KrXmlText::take(text, a) || !KrXmlText::take(text, b) || !KrXmlText::take(text, t)) {
        return false;
    }
    value = KrEdgePoint(a, b, t);
    return true;
}
