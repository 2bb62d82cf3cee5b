#pragma once

#include <rendCore/model/KrLabelTable.h>

#include <osg/Camera>
#include <osg/StateSet>
#include <osg/ref_ptr>

#include <array>
#include <cstdint>
#include <map>

namespace osgUtil
{
class CullVisitor;
}

/// The camera of a pass that draws, in place of colours, which part each pixel belongs to.
///
/// What is culled for it finds it in the visitor, and says which part it is: links and shapes by a state set, meshes of
/// the short way each for itself. What says nothing is not drawn. For use inside the library.
class KrLabelCamera : public osg::Camera
{
public:
    /// What a pixel gets of a part, as the program's uniform of that name has it: its label in the first number, or one
    /// bit of the four.
    using Value = std::array<std::uint32_t, 4>;
    static constexpr std::uint32_t kNumBits = 128;
    /// The uniforms: of state sets, and of meshes of the short way. Where one speaks the other is 0.
    static constexpr const char* kPart = "krPart";
    static constexpr const char* kMeshPart = "krMeshPart";

    KrLabelCamera();

    /// The one that is culled for; null for every other camera.
    static KrLabelCamera* of(osgUtil::CullVisitor& visitor);

    /// What the next pass draws: the labels of `level` in the place of the colours of `seen`.
    /// @param firstBit  0: labels; else the label that has the first bit, each of the next ones its own
    /// @param program   what stands above all that is drawn; borrowed until the next call
    void stand(osg::Camera& seen, KrLabelTable::Level level, std::uint32_t firstBit, const osg::StateSet* program);
    const osg::StateSet* program() const { return m_program; }
    /// The camera of colours, whose levels of detail are drawn. Borrowed.
    osg::Camera& seen() const { return *m_seen; }
    KrLabelTable::Level level() const { return m_level; }
    Value value(std::uint32_t label);
    /// The largest label that was asked for since the camera stands where it does.
    std::uint32_t largest() const { return m_largest; }
    /// Kept: a label has the same state set in every pass.
    osg::StateSet& states(std::uint32_t label);

protected:
    ~KrLabelCamera() override;

private:
    osg::Camera* m_seen = nullptr;
    const osg::StateSet* m_program = nullptr;
    KrLabelTable::Level m_level = KrLabelTable::Level::Link;
    std::uint32_t m_firstBit = 0;
    std::uint32_t m_largest = 0;
    std::map<Value, osg::ref_ptr<osg::StateSet>> m_states;
};
