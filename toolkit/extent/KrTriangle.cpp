#include <toolkit/extent/KrTriangle.h>

#include <algorithm>

bool operator==(const KrTriangle& a, const KrTriangle& b)
{
    // Nine numbers in a row: vertex, normal and texture coordinate of each corner.
    return std::equal(&a.m_index[0][0], &a.m_index[0][0] + 9, &b.m_index[0][0]);
}

void KrXmlPlain<KrTriangle>::append(std::string& out, const KrTriangle& value)
{
    // Corner by corner, as `take` expects it.
    for (unsigned int corner = 0; corner < 3; ++corner) {
        KrXmlText::append(out, value.vertex(corner));
        out += ' ';
        KrXmlText::append(out, value.normal(corner));
        out += ' ';
        KrXmlText::append(out, value.textureCoordinate(corner));
        out += corner == 2 ? "" : " ";
    }
}

bool KrXmlPlain<KrTriangle>::take(std::string_view& text, KrTriangle& value)
{
    for (unsigned int corner = 0; corner < 3; ++corner) {
        // A failure may leave corners set; whoever reads a list gives it up then.
        unsigned int vertex = 0;
        unsigned int normal = 0;
        unsigned int textureCoordinate = 0;
        if (!KrXmlText::take(text, vertex) || !KrXmlText::take(text, normal) ||
            !KrXmlText::take(text, textureCoordinate)) {
            return false;
        }
        value.setCorner(corner, vertex, normal, textureCoordinate);
    }
    return true;
}
