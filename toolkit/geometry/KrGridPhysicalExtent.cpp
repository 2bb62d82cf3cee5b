#include <toolkit/geometry/KrGridPhysicalExtent.h>

#include <toolkit/foundation/KrPrint.h>
#include <toolkit/geometry/KrTriPhysicalExtent.h>
#include <toolkit/xml/KrXmlReader.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace
{

std::string format(unsigned int nx, unsigned int ny, unsigned int nz)
{
    return std::to_string(nx) + " x " + std::to_string(ny) + " x " + std::to_string(nz);
}

/// nx * ny * nz == count, for products of any size.
bool isProduct(std::uint64_t nx, std::uint64_t ny, std::uint64_t nz, std::uint64_t count)
{
    // Two 32-bit counts fit; the third is divided away.
    const std::uint64_t layer = nx * ny;
    return layer != 0 && nz != 0 && count % layer == 0 && count / layer == nz;
}

/// Why there can be no such field; empty when there can.
std::string gridProblem(const KrVector& minimum, const KrVector& maximum, unsigned int nx, unsigned int ny,
                        unsigned int nz, const std::vector<double>& values)
{
    if (!isProduct(nx, ny, nz, values.size())) {
        return format(nx, ny, nz) + " cells and " + std::to_string(values.size()) + " values do not fit";
    }
    if (!minimum.isFinite() || !maximum.isFinite() || minimum.x() > maximum.x() || minimum.y() > maximum.y() ||
        minimum.z() > maximum.z()) {
        return "the corners span no box";
    }
    const auto bad = std::find_if(values.begin(), values.end(), [](double value) { return !std::isfinite(value); });
    return bad == values.end() ? std::string() : "value " + std::to_string(bad - values.begin()) + " is not finite";
}

// Written so that NaN fails too.
bool isColor(const KrVector& color)
{
    return std::all_of(color.data(), color.data() + 3, [](double channel) { return channel >= 0.0 && channel <= 1.0; });
}

bool areColors(const KrXmlVectorVector& colors)
{
    return std::all_of(colors.begin(), colors.end(), isColor);
}

void warn(const char* method, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrGridPhysicalExtent::%s - %s; nothing is changed.\n", method,
                                 reason.c_str());
}

} // namespace

bool KrGridPhysicalExtent::setGrid(const KrVector& minimum, const KrVector& maximum, unsigned int nx, unsigned int ny,
                                   unsigned int nz, const std::vector<double>& values)
{
    const std::string problem = gridProblem(minimum, maximum, nx, ny, nz, values);
    if (!problem.empty()) {
        warn("setGrid", problem);
        return false;
    }
    m_values.values() = values;
    m_minimum = minimum;
    m_maximum = maximum;
    m_cells.values() = {nx, ny, nz};
    touch();
    return true;
}

void KrGridPhysicalExtent::setDataScale(double scale)
{
    if (!std::isfinite(scale)) {
        warn("setDataScale", "a scale is finite");
        return;
    }
    m_dataScale = scale;
    touch();
}

void KrGridPhysicalExtent::setInflection(const KrVector& inflection)
{
    if (!inflection.isFinite()) {
        warn("setInflection", "an inflection is finite");
        return;
    }
    m_inflection = inflection;
    touch();
}

void KrGridPhysicalExtent::setLookupTable(const KrXmlVectorVector& colors)
{
    if (!areColors(colors)) {
        warn("setLookupTable", "colours are between 0 and 1");
        return;
    }
    m_lookupTable = colors;
    touch();
}

void KrGridPhysicalExtent::layout(double& dataScale, KrVector& minimum, KrVector& maximum, KrVector& dimensions,
                                  KrVector& inflection) const
{
    dataScale = m_dataScale;
    minimum = m_minimum;
    maximum = m_maximum;
    dimensions = m_cells.size() == 3 ? KrVector(m_cells[0], m_cells[1], m_cells[2]) : KrVector();
    inflection = m_inflection;
}

boost::shared_ptr<const KrTriPhysicalExtent> KrGridPhysicalExtent::triExtent() const
{
    return boost::shared_ptr<const KrTriPhysicalExtent>();
}

KrXmlToken KrGridPhysicalExtent::token() const
{
    return {KrXmlNamespace::core(), "grid"};
}

void KrGridPhysicalExtent::registerComponents()
{
    KrBasePhysicalExtent::registerComponents();
    registerComponent({KrXmlNamespace::core(), "dataScale"}, m_dataScale, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "minimum"}, m_minimum);
    registerComponent({KrXmlNamespace::core(), "maximum"}, m_maximum);
    registerComponent({KrXmlNamespace::core(), "cells"}, m_cells);
    registerComponent({KrXmlNamespace::core(), "inflection"}, m_inflection, Presence::Optional);
    registerComponent({KrXmlNamespace::core(), "values"}, m_values);
    registerComponent({KrXmlNamespace::core(), "lookupTable"}, m_lookupTable, Presence::Optional);
}

bool KrGridPhysicalExtent::validate(KrXmlReader& reader) const
{
    if (!std::isfinite(m_dataScale.value()) || !m_inflection.value().isFinite() || !areColors(m_lookupTable)) {
        return reader.fail("scale and inflection are finite, colours between 0 and 1");
    }
    // A field that was never set has no cells.
    if (m_cells.empty() && m_values.empty()) {
        return true;
    }
    if (m_cells.size() != 3) {
        return reader.fail("\"cells\" are three counts, not %u", m_cells.size());
    }
    const std::string problem = gridProblem(m_minimum, m_maximum, m_cells[0], m_cells[1], m_cells[2], values());
    return problem.empty() || reader.fail("%s", problem.c_str());
}

boost::shared_ptr<KrTriPhysicalExtent> KrGridPhysicalExtent::makeTriangles() const
{
    return boost::shared_ptr<KrTriPhysicalExtent>();
}
