#include <rendCore/model/private/KrLabelCamera.h>

#include <osg/Uniform>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <typeinfo>

KrLabelCamera::KrLabelCamera() = default;
KrLabelCamera::~KrLabelCamera() = default;

KrLabelCamera* KrLabelCamera::of(osgUtil::CullVisitor& visitor)
{
    osg::Camera* const camera = visitor.getCurrentCamera();
    // Every shape of every frame asks: a comparison of types is all that it may cost.
    return camera != nullptr && typeid(*camera) == typeid(KrLabelCamera) ? static_cast<KrLabelCamera*>(camera)
                                                                         : nullptr;
}

void KrLabelCamera::stand(osg::Camera& seen, KrLabelTable::Level level, std::uint32_t firstBit,
                          const osg::StateSet* program)
{
    m_seen = &seen;
    m_program = program;
    m_level = level;
    m_firstBit = firstBit;
    m_largest = 0;
    setView(seen.getView());
}

KrLabelCamera::Value KrLabelCamera::value(std::uint32_t label)
{
    m_largest = std::max(m_largest, label);
    Value value = {};
    if (m_firstBit == 0) {
        value[0] = label;
    } else if (label >= m_firstBit && label - m_firstBit < kNumBits) {
        const std::uint32_t bit = label - m_firstBit;
        value[bit / 32] = std::uint32_t{1} << bit % 32;
    }
    return value;
}

osg::StateSet& KrLabelCamera::states(std::uint32_t label)
{
    const Value part = value(label);
    osg::ref_ptr<osg::StateSet>& states = m_states[part];
    if (!states) {
        const osg::ref_ptr<osg::Uniform> uniform = new osg::Uniform(osg::Uniform::UNSIGNED_INT_VEC4, kPart);
        uniform->set(part[0], part[1], part[2], part[3]);
        states = new osg::StateSet;
        states->addUniform(uniform);
    }
    return *states;
}
