#pragma once

#include <toolkit/extent/KrBasePhysicalExtent.h>
#include <toolkit/math/KrXmlVector.h>
#include <toolkit/math/KrXmlVectorVector.h>

#include <vector>

/// A scalar field in the cells of a regular grid: a plume.
class KrGridPhysicalExtent : public KrXmlObjectOf<KrGridPhysicalExtent, KrBasePhysicalExtent>
{
public:
    KrGridPhysicalExtent() = default;

    /// Sets the field.
    /// @param minimum, maximum  opposite corners of the box, m
    /// @param values            nx * ny * nz values, x fastest, then y, then z
    /// @return false, after one message, when counts and values do not fit or are not finite; nothing changes then
    bool setGrid(const KrVector& minimum, const KrVector& maximum, unsigned int nx, unsigned int ny, unsigned int nz,
                 const std::vector<double>& values);
    /// Every value is multiplied by this when drawn. Products beyond 65504, the greatest value of the texture's 16-bit
    /// numbers, are drawn as infinite ones, after one message when the scene is built.
    void setDataScale(double scale);
    /// Shapes the transfer function of the plume renderer.
    void setInflection(const KrVector& inflection);
    /// Colours (red, green, blue in [0, 1]) from the lowest value to the highest.
    void setLookupTable(const KrXmlVectorVector& colors);

    /// Bounds and layout; `dimensions` holds the cell counts along x, y, z.
    void layout(double& dataScale, KrVector& minimum, KrVector& maximum, KrVector& dimensions,
                KrVector& inflection) const;
    const std::vector<double>& values() const { return m_values.values(); }
    const KrXmlVectorVector& lookupTable() const { return m_lookupTable; }

    /// A field has no surface: null.
    boost::shared_ptr<const KrTriPhysicalExtent> triExtent() const override;
    KrXmlToken token() const override;
    void registerComponents() override;

protected:
    bool validate(KrXmlRefusal& refusal) const override;
    boost::shared_ptr<KrTriPhysicalExtent> makeTriangles() const override;

private:
    /// A list of numbers. Read from the element's text: numbers, or with encoding="base64" the bytes of little-endian
    /// numbers of the attribute "type" (float32, float64), or with file="NAME" those of a file beside the document;
    /// without a type that is one of KrGridFile. Written as numbers.
    class Values : public KrXmlVectorType<double>
    {
    public:
        bool read(KrXmlReader& reader) override;
        void writeSchemaContent(KrXmlSchema& schema) const override;

    private:
        bool readBytes(KrXmlReader& reader, const std::string& bytes, const std::string& type);
        bool readField(KrXmlReader& reader, const std::string& path);
    };

    KrXmlBasicType<double> m_dataScale = 1.0;
    KrXmlVector m_minimum;
    KrXmlVector m_maximum;
    KrXmlVectorType<unsigned int> m_cells; ///< three counts
    KrXmlVector m_inflection;
    Values m_values;
    KrXmlVectorVector m_lookupTable;
};
