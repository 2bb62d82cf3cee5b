#include <rendCore/model/KrLabelTable.h>

#include <rendCore/model/private/KrPartNumbers.h>

#include <toolkit/system/KrManipulatorSystem.h>
#include <toolkit/system/private/KrLinkWalk.h>

#include <utility>

namespace
{

/// Calls `visit(name, number of shapes)` for every link in the order of labels.
template <typename Visit>
void forEachLink(const KrIndividualManipulator& manipulator, const Visit& visit)
{
    visit(manipulator.name(), manipulator.numShapes());
    KrLinkWalk walk(manipulator);
    while (const KrManipulatorLink* const link = walk.next()) {
        visit(link->name(), link->numShapes());
    }
    const KrIntraLinkDescription& bodies = manipulator.intraLinks();
    for (unsigned int i = 0; i < bodies.count(); ++i) {
        // A body has one shape at the most, and a label whether it has it or not.
        visit(bodies.intraLink(i).startLink() + " - " + bodies.intraLink(i).endLink(), 1u);
    }
}

} // namespace

KrLabelTable::KrLabelTable(const KrManipulatorSystem& system, Level level)
    : m_level(level)
{
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = system.manipulators();
    for (unsigned int i = 0; i < manipulators.size(); ++i) {
        const std::string& name = manipulators[i].name();
        if (level == Level::Manipulator) {
            m_parts.push_back({name, std::string(), i, 0, 0});
            continue;
        }
        unsigned int number = 0;
        forEachLink(manipulators[i], [&](const std::string& link, unsigned int numShapes) {
            const unsigned int count = level == Level::Shape ? numShapes : 1;
            for (unsigned int shape = 0; shape < count; ++shape) {
                m_parts.push_back({name, link, i, number, shape});
            }
            ++number;
        });
    }
}

KrPartNumbers::KrPartNumbers(const KrIndividualManipulator& manipulator, Next& next)
    : m_manipulator(next.manipulator++)
    , m_firstLink(next.link)
{
    forEachLink(manipulator, [&](const std::string&, unsigned int numShapes) {
        m_firstShapes.push_back(next.shape);
        next.shape += numShapes;
        ++next.link;
    });
    m_firstShapes.push_back(next.shape);
}

std::uint32_t KrPartNumbers::label(KrLabelTable::Level level, std::size_t linkIndex, std::size_t shapeIndex) const
{
    if (m_manipulator == 0 || level == KrLabelTable::Level::Manipulator) {
        return m_manipulator;
    }
    // A client's own node in a place that no link has.
    if (linkIndex + 1 >= m_firstShapes.size()) {
        return 0;
    }
    if (level == KrLabelTable::Level::Link) {
        return m_firstLink + static_cast<std::uint32_t>(linkIndex);
    }
    const std::uint32_t first = m_firstShapes[linkIndex];
    return shapeIndex < m_firstShapes[linkIndex + 1] - first ? first + static_cast<std::uint32_t>(shapeIndex) : 0;
}
