#include <rendCore/model/KrRenderDeformationShape.h>

#include <rendCore/base/private/KrVec3.h>
#include <rendCore/model/KrTextureMarker.h>

#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrRowTable.h>

#include <osg/GL>
#include <osg/Material>
#include <osg/StateSet>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

namespace
{

/// The material's alpha counts where the shape is lit, the colour's (`applyAlpha`) where it is not.
void setMaterialAlpha(osg::StateSet& stateSet, float alpha)
{
    if (auto* const material = dynamic_cast<osg::Material*>(stateSet.getAttribute(osg::StateAttribute::MATERIAL))) {
        material->setAlpha(osg::Material::FRONT_AND_BACK, alpha);
    }
    if (alpha < 1.0f) {
        stateSet.setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
        stateSet.setMode(GL_BLEND, osg::StateAttribute::ON);
    } else {
        // Back to what an opaque shape is built with.
        stateSet.setRenderingHint(osg::StateSet::DEFAULT_BIN);
        stateSet.removeMode(GL_BLEND);
    }
}

osg::Vec2 vec2(const KrPlanarVector& v)
{
    return {static_cast<float>(v.u()), static_cast<float>(v.v())};
}

void drawStroke(KrTextureMarker& marker, const KrSurfaceStroke& stroke)
{
    std::vector<osg::Vec2> points;
    points.reserve(stroke.points().size());
    for (const KrPlanarVector& point : stroke.points()) {
        points.push_back(vec2(point));
    }
    const KrColor& color = stroke.color();
    KrTextureMarker::Brush brush;
    brush.radius = static_cast<float>(stroke.radius());
    brush.color.set(static_cast<float>(color.red()), static_cast<float>(color.green()),
                    static_cast<float>(color.blue()), static_cast<float>(color.alpha()));
    brush.hardness = static_cast<float>(stroke.hardness());
    // Checked where the extent took the stroke: it is refused for nothing but the lack of room or memory.
    marker.stroke(points, brush);
}

/// Farther away the sphere around a shape would not be one in single precision: its radius is squared.
constexpr double kFarthest = 1e18;

/// Whether all of `extent` can be drawn. Written so that NaN fails too.
bool isInRange(const KrDeformationPhysicalExtent& extent)
{
    for (const KrVector& point : extent.points()) {
        // Of the points as they are now, deformed: weights may carry them anywhere.
        if (!(point.dot(point) <= kFarthest * kFarthest)) {
            return false;
        }
    }
    for (unsigned int piece = 0; piece < extent.numPieces(); ++piece) {
        double entries[16];
        extent.pieceToOwner(piece).assign16(entries);
        if (!std::all_of(std::begin(entries), std::end(entries), [](double e) { return std::abs(e) <= kFarthest; })) {
            return false;
        }
    }
    return true;
}

/// Strokes that have a place on the surface.
const std::vector<KrSurfaceStroke>& strokesOf(const KrDeformationPhysicalExtent& extent)
{
    // Without texture coordinates there is nowhere to paint; the extent keeps its strokes.
    static const std::vector<KrSurfaceStroke> none;
    return extent.textureCoordinates().empty() ? none : extent.strokes();
}

/// The box of a drawable as it was filled last: cheaper than looking through all its triangles.
class FilledBox : public osg::Drawable::ComputeBoundingBoxCallback
{
public:
    osg::BoundingBox computeBound(const osg::Drawable&) const override { return box; }

    osg::BoundingBox box;
};

} // namespace

/// Has the strokes of an extent marked, as many in a frame as there is room for.
class KrRenderDeformationShape::Painter : public KrMarkingCallback
{
public:
    const std::vector<KrSurfaceStroke>& strokes() const { return m_strokes; }
    bool isDone() const { return m_numPainted == m_strokes.size(); }
    /// Strokes that were added are painted over what is there; when others are gone, all of it is painted anew.
    void setStrokes(const std::vector<KrSurfaceStroke>& strokes, KrTextureMarker& marker)
    {
        const bool areMore =
            m_strokes.size() <= strokes.size() && std::equal(m_strokes.begin(), m_strokes.end(), strokes.begin());
        if (!areMore) {
            marker.clear();
            m_numPainted = 0;
        }
        // A copy: the extent's may change before the next frame has room for the rest.
        m_strokes = strokes;
    }
    void mark(KrTextureMarker& marker) override
    {
        // As many as wait at most; the rest follows with later frames, in order.
        for (; !isDone() && marker.hasRoom(); ++m_numPainted) {
            drawStroke(marker, m_strokes[m_numPainted]);
        }
        if (isDone()) {
            marker.removeCallback(this);
        }
    }

protected:
    ~Painter() override = default;

private:
    std::vector<KrSurfaceStroke> m_strokes;
    std::size_t m_numPainted = 0;
};

KrRenderDeformationShape::KrRenderDeformationShape(const KrBasePhysicalExtent* extent, const KrMaterialMap& materialMap)
    : KrRenderShape(extent, materialMap)
    , m_materialMap(materialMap)
{
    // Kept: after the base has built its drawables, which do not know of it: `prepareDrawables` below tells them one by
    // one.
    KrRenderShape::setAttribute(KrRenderTypes::NoDisplayList);
    if (const auto* const deformation = dynamic_cast<const KrDeformationPhysicalExtent*>(extent)) {
        if (!checkRange(*deformation)) {
            removeDrawables(0, getNumDrawables());
            return;
        }
        indexGroups(*deformation);
        prepareDrawables();
        paint(strokesOf(*deformation));
        remember(*deformation);
        return;
    }
    prepareDrawables();
}

KrRenderDeformationShape::~KrRenderDeformationShape() = default;

void KrRenderDeformationShape::prepareDrawables()
{
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        osg::Geometry& geometry = *getDrawable(i)->asGeometry();
        // The scene graph's optimizers leave alone what is dynamic.
        geometry.setDataVariance(osg::Object::DYNAMIC);
        // A list would hold the vertices of one frame.
        geometry.setSupportsDisplayList(false);
        geometry.setUseVertexBufferObjects(true);
        // Written in every frame: the driver shall keep it where that is cheap.
        geometry.getOrCreateVertexBufferObject()->setUsage(GL_DYNAMIC_DRAW);
        osg::StateSet& states = *geometry.getStateSet();
        states.setDataVariance(osg::Object::DYNAMIC);
        // The inside of a body has no part in the picture of its surface.
        if (i < m_sources.size() && m_sources[i].isCap &&
            states.getTextureAttribute(0, osg::StateAttribute::TEXTURE) == nullptr) {
            // Protected, as in every shape: a selection switches textures on with an override.
            states.setTextureMode(0, GL_TEXTURE_2D, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
        }
    }
}

bool KrRenderDeformationShape::hasGroupsOf(const KrTriPhysicalExtent& mesh) const
{
    const unsigned int numGroups = numDrawnGroups(mesh);
    if (numGroups != getNumDrawables()) {
        return false;
    }
    for (unsigned int i = 0; i < numGroups; ++i) {
        const osg::Array& vertices = *getDrawable(i)->asGeometry()->getVertexArray();
        // The same number of triangles is enough: positions and normals are filled in anew, corner by corner.
        if (vertices.getNumElements() != 3 * mesh.groups()[i].second().size()) {
            return false;
        }
    }
    return true;
}

void KrRenderDeformationShape::rebuild(const KrTriPhysicalExtent& mesh)
{
    removeDrawables(0, getNumDrawables());
    addGroups(mesh, m_materialMap);
}

void KrRenderDeformationShape::remember(const KrDeformationPhysicalExtent& extent)
{
    m_revision = extent.revision();
    m_placement = extent.placement();
}

/// False, after one message, as long as `extent` cannot be drawn.
bool KrRenderDeformationShape::checkRange(const KrDeformationPhysicalExtent& extent)
{
    const bool wasOutOfRange = m_isOutOfRange;
    m_isOutOfRange = !isInRange(extent);
    if (m_isOutOfRange && !wasOutOfRange) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrRenderDeformationShape::update - \"%s\" does not follow its extent: a vertex "
                                     "is not within %g m.\n",
                                     getName().c_str(), kFarthest);
    }
    return !m_isOutOfRange;
}

void KrRenderDeformationShape::follow(const KrDeformationPhysicalExtent& extent)
{
    // A placement is no change of the extent's own, so that its revision does not tell.
    const bool isPlacedAnew = m_placement != extent.placement();
    const unsigned int changes =
        extent.changesSince(m_revision) | (isPlacedAnew ? KrDeformationPhysicalExtent::VerticesMoved : 0u);
    // The shape stays as it was, and what has changed is not taken for done: the next call tries again.
    if ((changes & KrDeformationPhysicalExtent::VerticesMoved) != 0 && !checkRange(extent)) {
        return;
    }
    if ((changes & KrDeformationPhysicalExtent::CutChanged) != 0) {
        // A cut makes other groups of other triangles; bending leaves both as they are.
        rebuild(*extent.triExtent());
        indexGroups(extent);
        prepareDrawables();
        applyAlpha();
    } else if ((changes & KrDeformationPhysicalExtent::VerticesMoved) != 0) {
        fillGroups(extent);
    }
    if ((changes & KrDeformationPhysicalExtent::StrokesChanged) != 0) {
        paint(strokesOf(extent));
    }
    remember(extent);
}

void KrRenderDeformationShape::paint(const std::vector<KrSurfaceStroke>& strokes)
{
    // Nothing to paint and nothing painted: no texture is made for a shape that was never marked.
    if (strokes.empty() && (!m_painter || m_painter->strokes().empty())) {
        return;
    }
    KrTextureMarker* const marker = KrTextureMarker::of(*this);
    if (marker == nullptr) {
        return;
    }
    if (!m_painter) {
        m_painter = new Painter;
    }
    m_painter->setStrokes(strokes, *marker);
    // At once, so that the frame under way has them; what has no room comes back by the callback.
    m_painter->mark(*marker);
    if (!m_painter->isDone()) {
        marker->addCallback(m_painter);
    }
}

KrMarkingCallback* KrRenderDeformationShape::painter() const
{
    return m_painter;
}

void KrRenderDeformationShape::takeMarks(KrTextureMarker& marker, KrMarkingCallback* painter)
{
    // The new shape's, from its own construction; the other painter's come from the shape of before.
    const std::vector<KrSurfaceStroke> strokes = m_painter ? m_painter->strokes() : std::vector<KrSurfaceStroke>();
    if (marker.moveTo(*this)) {
        // It knows which strokes are painted: only what has changed since is painted now.
        m_painter = dynamic_cast<Painter*>(painter);
        paint(strokes);
    }
}

/// Gives the drawables, one for each group, arrays without repetitions and indexed triangles.
void KrRenderDeformationShape::indexGroups(const KrDeformationPhysicalExtent& extent)
{
    // A mesh form that was refused has no drawables.
    m_sources.assign(std::min<std::size_t>(extent.groups().size(), getNumDrawables()), GroupSource());
    for (std::size_t i = 0; i < m_sources.size(); ++i) {
        const KrDeformationGroup& group = extent.groups()[i];
        GroupSource& source = m_sources[i];
        source.piece = group.piece();
        source.isCap = group.isCap();
        const osg::ref_ptr<osg::Vec2Array> coordinates = new osg::Vec2Array;
        const osg::ref_ptr<osg::DrawElementsUInt> indices = new osg::DrawElementsUInt(GL_TRIANGLES);
        // Corners are one where all three numbers are: an edge with two normals stays sharp.
        KrRowTable<std::array<std::uint32_t, 3>> corners;
        for (const KrTriangle& triangle : group.triangles()) {
            for (unsigned int corner = 0; corner < 3; ++corner) {
                indices->push_back(corners.number(
                    {triangle.vertex(corner), triangle.normal(corner), triangle.textureCoordinate(corner)}));
                // A corner that was met before.
                if (indices->back() < source.points.size()) {
                    continue;
                }
                source.points.push_back(triangle.vertex(corner));
                source.normals.push_back(triangle.normal(corner));
                if (!extent.textureCoordinates().empty()) {
                    coordinates->push_back(vec2(extent.textureCoordinates()[triangle.textureCoordinate(corner)]));
                }
            }
        }
        osg::Geometry& geometry = *getDrawable(static_cast<unsigned int>(i))->asGeometry();
        geometry.setVertexArray(new osg::Vec3Array(static_cast<unsigned int>(source.points.size())));
        geometry.setNormalArray(new osg::Vec3Array(static_cast<unsigned int>(source.points.size())));
        geometry.setNormalBinding(osg::Geometry::BIND_PER_VERTEX);
        if (!extent.textureCoordinates().empty()) {
            geometry.setTexCoordArray(0, coordinates);
        }
        // In place of the triangles of the base class, which are not indexed.
        geometry.setPrimitiveSet(0, indices);
        geometry.setComputeBoundingBoxCallback(new FilledBox);
    }
    fillGroups(extent);
}

void KrRenderDeformationShape::fillGroups(const KrDeformationPhysicalExtent& extent)
{
    // Asked once: an extent may have to reckon them first.
    const std::vector<KrVector>& points = extent.points();
    const std::vector<KrVector>& normals = extent.normals();
    for (std::size_t i = 0; i < m_sources.size(); ++i) {
        const GroupSource& source = m_sources[i];
        const KrCoordinateSystemTransformation toOwner = extent.pieceToOwner(source.piece);
        osg::Geometry& geometry = *getDrawable(static_cast<unsigned int>(i))->asGeometry();
        auto& drawnVertices = static_cast<osg::Vec3Array&>(*geometry.getVertexArray());
        auto& drawnNormals = static_cast<osg::Vec3Array&>(*geometry.getNormalArray());
        osg::BoundingBox box;
        for (std::size_t k = 0; k < source.points.size(); ++k) {
            drawnVertices[k] = vec3(toOwner.transformPoint(points[source.points[k]]));
            drawnNormals[k] = vec3(toOwner.transformDirection(normals[source.normals[k]]));
            box.expandBy(drawnVertices[k]);
        }
        // Before the bound is made stale: it is asked for from there.
        static_cast<FilledBox&>(*geometry.getComputeBoundingBoxCallback()).box = box;
        // Sent to the driver with the next frame, from the same buffer.
        drawnVertices.dirty();
        drawnNormals.dirty();
        geometry.dirtyBound();
    }
}

void KrRenderDeformationShape::update(KrBasePhysicalExtent* extent)
{
    if (const auto* const deformation = dynamic_cast<const KrDeformationPhysicalExtent*>(extent)) {
        follow(*deformation);
        return;
    }
    const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
        extent != nullptr ? extent->triExtent() : boost::shared_ptr<const KrTriPhysicalExtent>();
    if (!mesh) {
        return;
    }
    // The extent may be of another class than the one before: nothing of a deforming one may be left.
    const bool wasIndexed = !m_sources.empty();
    m_sources.clear();
    m_revision = KrDeformationPhysicalExtent::Revision();
    m_isOutOfRange = false;
    paint({});
    if (wasIndexed || !hasGroupsOf(*mesh)) {
        rebuild(*mesh);
        prepareDrawables();
        applyAlpha();
        return;
    }
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        osg::Geometry& geometry = *getDrawable(i)->asGeometry();
        auto& vertices = static_cast<osg::Vec3Array&>(*geometry.getVertexArray());
        auto& normals = static_cast<osg::Vec3Array&>(*geometry.getNormalArray());
        if (!vertices.empty()) {
            fillCorners(*mesh, mesh->groups()[i].second(), &vertices.front(), &normals.front());
        }
        vertices.dirty();
        normals.dirty();
        geometry.dirtyBound();
    }
}

void KrRenderDeformationShape::updateAlpha(float alpha)
{
    // No order has a place for it; the shape stays as it is.
    if (std::isnan(alpha)) {
        return;
    }
    const float clamped = std::clamp(alpha, 0.0f, 1.0f);
    if (clamped != m_alpha) {
        m_alpha = clamped;
        applyAlpha();
    }
}

void KrRenderDeformationShape::applyAlpha()
{
    // Negative until the first call: materials keep the alpha that they have.
    if (m_alpha < 0.0f) {
        return;
    }
    for (unsigned int i = 0; i < getNumDrawables(); ++i) {
        osg::Geometry& geometry = *getDrawable(i)->asGeometry();
        auto& colors = static_cast<osg::Vec4Array&>(*geometry.getColorArray());
        for (osg::Vec4& color : colors) {
            color.a() = m_alpha;
        }
        colors.dirty();
        setMaterialAlpha(*geometry.getStateSet(), m_alpha);
    }
}
