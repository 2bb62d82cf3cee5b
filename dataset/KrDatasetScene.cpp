#include <dataset/KrDatasetScene.h>

#include <dataset/KrDatasetFormat.h>
#include <dataset/KrDatasetSample.h>
#include <dataset/private/KrDatasetBackdrop.h>
#include <dataset/private/KrDatasetClock.h>
#include <dataset/private/KrDatasetHash.h>

#include <import/KrSystemFile.h>
#include <picture/KrPictureScene.h>
#include <picture/KrValueText.h>
#include <rendCore/model/KrRenderLink.h>
#include <toolkit/extent/KrTriPhysicalExtent.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/foundation/private/KrText.h>

#include <GL/gl.h>

#include <osg/Group>
#include <osg/Material>
#include <osg/NodeVisitor>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <tuple>
#include <utility>

namespace
{

using Transformation = KrCoordinateSystemTransformation;

osg::Matrixd matrixOf(const Transformation& pose)
{
    double entries[16];
    pose.assign16(entries);
    return osg::Matrixd(entries);
}

/// Every shape of a mesh file's only link, larger or smaller. False where numbers grow out of their range.
bool scale(KrIndividualManipulator& manipulator, double factor)
{
    for (unsigned int i = 0; i < manipulator.numShapes(); ++i) {
        const boost::shared_ptr<KrShape> shape = manipulator.shapePointer(i);
        const boost::shared_ptr<const KrTriPhysicalExtent> mesh =
            shape && shape->physicalExtent() ? shape->physicalExtent()->triExtent() : nullptr;
        if (!mesh) {
            continue;
        }
        KrXmlVectorVector vertices = mesh->vertices();
        for (unsigned int v = 0; v < vertices.size(); ++v) {
            vertices[v] *= factor;
        }
        const boost::shared_ptr<KrTriPhysicalExtent> scaled(new KrTriPhysicalExtent);
        if (!scaled->setMesh(vertices, mesh->normals(), mesh->textureCoordinates(), mesh->groups())) {
            return false;
        }
        scaled->setMaterialMap(mesh->materialMap());
        shape->setPhysicalExtent(scaled);
    }
    return true;
}

/// Finds the nodes that carry the shapes of links.
class LinkNodes : public osg::NodeVisitor
{
public:
    LinkNodes()
        : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN)
    {
    }
    void apply(osg::MatrixTransform& node) override
    {
        if (const auto* const link = dynamic_cast<KrRenderLink*>(&node)) {
            const unsigned int joint = link->getJointIndex();
            const unsigned int number = joint == KrRenderLink::kBaseJointIndex ? 0 : joint + 1;
            shapes[{link->getManIndex(), number}] = link->getDhFrame();
        }
        traverse(node);
    }

    std::map<std::pair<unsigned int, unsigned int>, osg::ref_ptr<osg::MatrixTransform>> shapes;
};

/// Whatever the shapes below a node look like, they look like this.
osg::ref_ptr<osg::Material> overrideLook(osg::Node& node)
{
    const osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setColorMode(osg::Material::OFF);
    material->setDataVariance(osg::Object::DYNAMIC);
    node.getOrCreateStateSet()->setAttributeAndModes(material, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    return material;
}

/// As KrDataMap::material: matt, with a faint highlight.
void setColor(osg::Material& material, const KrColor& color)
{
    const osg::Vec4 shown(static_cast<float>(color.red()), static_cast<float>(color.green()),
                          static_cast<float>(color.blue()), 1.0f);
    material.setAmbient(osg::Material::FRONT_AND_BACK, shown);
    material.setDiffuse(osg::Material::FRONT_AND_BACK, shown);
    material.setSpecular(osg::Material::FRONT_AND_BACK, osg::Vec4(0.1f, 0.1f, 0.1f, 1.0f));
    material.setShininess(osg::Material::FRONT_AND_BACK, 20.0f);
}

KrLabelTable::Level levelOf(KrDatasetRecipe::LabelLevel level)
{
    return level == KrDatasetRecipe::LabelLevel::Manipulator ? KrLabelTable::Level::Manipulator
           : level == KrDatasetRecipe::LabelLevel::Link      ? KrLabelTable::Level::Link
                                                             : KrLabelTable::Level::Shape;
}

void grow(KrDatasetSample::Box& box, unsigned int x, unsigned int y)
{
    // Row after row: y never goes back.
    if (box.width == 0) {
        box = {x, y, 1, 1};
        return;
    }
    const unsigned int right = std::max(box.x + box.width, x + 1);
    box.x = std::min(box.x, x);
    box.width = right - box.x;
    box.height = y - box.y + 1;
}

} // namespace

/// What needs a context.
struct KrDatasetScene::Drawing
{
    KrPictureScene scene;
    KrDatasetBackdrop backdrop;
    std::vector<osg::ref_ptr<osg::Material>> looks; ///< of the links that have colours of their own, as in a shot
    KrAmodalMasks masks;
    std::vector<unsigned char> mask; ///< of one part
};

KrDatasetScene::KrDatasetScene() = default;
KrDatasetScene::~KrDatasetScene() = default;

bool KrDatasetScene::load(const KrDatasetRecipe& recipe, std::string& reason)
{
    m_recipe = recipe;
    if (!loadSources(reason) || !m_sampler.prepare(m_recipe, m_system, m_sources, reason)) {
        return false;
    }
    describe();
    const KrDatasetFormat* const format = KrDatasetFormat::find(m_recipe.format);
    if (format == nullptr) {
        reason = "there is no format \"" + m_recipe.format + "\"";
        return false;
    }
    return format->check(m_info, reason);
}

bool KrDatasetScene::loadSources(std::string& reason)
{
    struct Wanted
    {
        const std::string& name;
        const std::string& className;
        const std::string& file;
        KrSystemFile::Accept accept;
        std::vector<std::string> packagePaths;
        double scale;
    };
    std::vector<Wanted> wanted;
    for (const KrDatasetRecipe::Robot& r : m_recipe.robots) {
        wanted.push_back({r.name, r.className, r.file, KrSystemFile::Accept::Systems, r.packagePaths, 1.0});
    }
    for (const KrDatasetRecipe::Mesh& m : m_recipe.meshes) {
        wanted.push_back({m.name, m.className, m.file, KrSystemFile::Accept::SystemsAndMeshes, {}, m.scale});
    }
    KrManipulatorSystem system;
    KrManipulatorSystemState state;
    // A file that stands in the scene more than once is read once: copies share their meshes.
    std::map<std::tuple<std::string, std::vector<std::string>, double>, KrStatedSystem> read;
    for (const Wanted& each : wanted) {
        const auto key = std::make_tuple(each.file, each.packagePaths, each.scale);
        if (read.count(key) == 0) {
            KrImportOptions options;
            options.packagePaths = each.packagePaths;
            options.useCache = true;
            options.preparation = m_recipe.levelOfDetail > 0.0 ? KrImportOptions::Preparation::Levels
                                                               : KrImportOptions::Preparation::Drawing;
            KrSystemFile file;
            if (!file.read(each.file, options, each.accept, reason)) {
                return false;
            }
            for (const KrImportReport::Warning& warning : file.report.warnings()) {
                m_warnings.push_back(each.name + ": " + warning.element + ": " + warning.text);
            }
            for (const KrImportReport::Mesh& mesh : file.report.meshes()) {
                if (mesh.missing && !mesh.isCollision) {
                    // A stand-in in a million pictures would be found out too late.
                    reason = "\"" + each.name + "\" lacks a mesh: \"" + mesh.uri + "\" of link \"" + mesh.link +
                             "\" is missing";
                    return false;
                }
            }
            KrStatedSystem& stated = file.system.statedSystem();
            if (each.scale != 1.0 && !scale(stated.manipulatorSystem().manipulators()[0], each.scale)) {
                reason = "\"" + each.name + "\" cannot be scaled by so much";
                return false;
            }
            read.emplace(key, stated);
        }
        const KrStatedSystem& found = read.at(key);
        const auto count = static_cast<unsigned int>(found.manipulatorSystem().manipulators().size());
        m_sources.push_back({each.name, static_cast<unsigned int>(system.manipulators().size()), count});
        for (unsigned int i = 0; i < count; ++i) {
            system.manipulators().push_back(found.manipulatorSystem().manipulators()[i]);
            state.positionStates().push_back(found.systemState().positionStates()[i]);
            // A file with several robots in it: each under the name of the file's.
            const std::string suffix = count > 1 ? "." + std::to_string(i) : "";
            m_manipulatorNames.push_back(each.name + suffix);
            m_classNames.push_back(each.className + suffix);
        }
    }
    m_system = KrStatedSystem(system);
    const KrReason said;
    if (!m_system.setSystemState(state)) {
        reason = said.text("the robots' states do not fit them");
        return false;
    }
    return true;
}

void KrDatasetScene::describe()
{
    m_info.name = m_recipe.name;
    m_info.rendererVersion = KR_VERSION;
    m_info.recipeHash = KrDatasetHash::ofText(m_recipe.text);
    m_info.width = m_recipe.width;
    m_info.height = m_recipe.height;
    m_info.kinds = m_recipe.kinds;
    m_info.numSamples = m_recipe.count;
    m_info.samplesPerShard = m_recipe.samplesPerShard;
    m_info.system = &m_system;
    for (const KrDatasetRecipe::Camera& camera : m_recipe.cameras) {
        m_info.cameras.push_back(camera.name);
    }
    // As label images have them; the recipe's names take the place of the files'.
    const KrLabelTable::Level level = levelOf(m_recipe.labelLevel);
    const KrLabelTable table(m_system.manipulatorSystem(), level);
    std::map<std::string, std::uint32_t> categories;
    for (std::uint32_t label = 1; label <= table.size(); ++label) {
        const KrLabelTable::Part& found = table.part(label);
        std::string below = level == KrLabelTable::Level::Manipulator ? "" : "/" + KrText::oneLine(found.link);
        below += level == KrLabelTable::Level::Shape ? "/" + std::to_string(found.shapeIndex) : "";
        KrDatasetPart part;
        part.label = label;
        part.manipulator = m_manipulatorNames[found.manipulatorIndex];
        part.name = part.manipulator + below;
        part.link = found.link;
        part.manipulatorIndex = found.manipulatorIndex;
        part.linkIndex = found.linkIndex;
        part.shapeIndex = found.shapeIndex;
        const std::string& className = m_classNames[found.manipulatorIndex];
        const auto [entry, isNew] =
            categories.emplace(className + below, static_cast<std::uint32_t>(m_info.categories.size() + 1));
        if (isNew) {
            m_info.categories.push_back({entry->second, entry->first, className});
        }
        part.category = entry->second;
        m_info.parts.push_back(part);
    }
}

bool KrDatasetScene::open(std::string& reason)
{
    m_drawing = std::make_unique<Drawing>();
    KrPictureScene& scene = m_drawing->scene;
    scene.window().setName("data set");
    scene.window().setLevelOfDetail(static_cast<float>(m_recipe.levelOfDetail));
    // A sample is the same whatever was drawn before it.
    scene.window().setSteadyLevels(false);
    KrVisualizationParameters parameters;
    // Lamps are numbered once: all samples have as many.
    const KrDatasetShot first = m_sampler.shot(0, 0);
    parameters.setPovParameters(first.pov);
    parameters.setLightParameters(first.lights);
    if (!scene.open(m_recipe.width, m_recipe.height, m_recipe.samplesPerPixel, reason)) {
        return false;
    }
    const auto* const renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    m_renderer = renderer != nullptr ? renderer : "";
    if (!scene.show(m_system, parameters, reason)) {
        return false;
    }
    LinkNodes nodes;
    scene.window().getNode()->accept(nodes);
    for (const KrDatasetShot::LinkColor& color : first.colors) {
        // Twice in the recipe: the later one counts.
        m_drawing->looks.push_back(overrideLook(*nodes.shapes.at({color.manipulator, color.link})));
    }
    if (first.backgroundPicture) {
        m_drawing->backdrop.attach(*scene.window().getNode());
    }
    return true;
}

bool KrDatasetScene::isSoftware() const
{
    const std::string name = KrText::lowered(m_renderer);
    for (const char* const program : {"llvmpipe", "softpipe", "swrast", "software"}) {
        if (name.find(program) != std::string::npos) {
            return true;
        }
    }
    return false;
}

bool KrDatasetScene::draw(std::uint64_t number, KrDatasetSample& sample, std::string& reason)
{
    KrDatasetShot shot;
    double share = 0.0;
    for (unsigned int attempt = 0; attempt < kMostAttempts; ++attempt) {
        if (!drawShot(number, attempt, shot, sample, reason)) {
            return false;
        }
        const auto numSeen = std::count_if(sample.labels.begin(), sample.labels.end(), [](auto l) { return l != 0; });
        share = static_cast<double>(numSeen) / static_cast<double>(std::size_t{m_recipe.width} * m_recipe.height);
        if (sample.labels.empty() || share >= m_recipe.leastCovered) {
            return fillParts(shot, sample, reason);
        }
        if (m_recipe.cameras[shot.camera].isFixed()) {
            break;
        }
    }
    char text[200];
    std::snprintf(text, sizeof text,
                  "sample %llu shows too little: parts cover %.3g %% of the picture of camera \"%s\", leastCovered "
                  "asks for %.3g %%",
                  static_cast<unsigned long long>(number), 100.0 * share,
                  m_info.cameras[number % m_info.cameras.size()].c_str(), 100.0 * m_recipe.leastCovered);
    reason = text;
    return false;
}

bool KrDatasetScene::drawShot(std::uint64_t number, unsigned int attempt, KrDatasetShot& shot, KrDatasetSample& sample,
                              std::string& reason)
{
    const double start = KrDatasetClock::now();
    shot = m_sampler.shot(number, attempt);
    KrPictureScene& scene = m_drawing->scene;
    KrRenderWindow& window = scene.window();
    window.setPovParameters(shot.pov);
    window.loadLight(shot.lights);
    window.setAmbientLight(shot.ambient);
    window.setBackgroundColor(shot.background);
    const KrReason said;
    if (!window.setCameraIntrinsics(shot.intrinsics)) {
        reason = said.text("this camera cannot be");
        return false;
    }
    for (std::size_t i = 0; i < shot.colors.size(); ++i) {
        setColor(*m_drawing->looks[i], shot.colors[i].color);
    }
    if (shot.backgroundPicture &&
        !m_drawing->backdrop.show(m_recipe.backgroundPictures[*shot.backgroundPicture],
                                  static_cast<double>(m_recipe.width) / m_recipe.height, reason)) {
        return false;
    }
    const std::size_t numPixels = std::size_t{m_recipe.width} * m_recipe.height;
    const KrDatasetKinds& kinds = m_recipe.kinds;
    // Labels tell how much is covered, too.
    const bool hasLabels = kinds.labels || kinds.masks || m_recipe.leastCovered > 0.0;
    sample.number = number;
    sample.state = number / m_recipe.cameras.size();
    sample.camera = shot.camera;
    sample.width = m_recipe.width;
    sample.height = m_recipe.height;
    sample.color.resize(kinds.color ? 3 * numPixels : 0);
    sample.depth.resize(kinds.depth ? numPixels : 0);
    sample.labels.resize(hasLabels ? numPixels : 0);
    sample.normals.resize(kinds.normals ? 3 * numPixels : 0);
    KrFrameCapture::Options options;
    options.labelLevel = levelOf(m_recipe.labelLevel);
    KrFrameCapture::Targets targets;
    targets.width = m_recipe.width;
    targets.height = m_recipe.height;
    targets.color = kinds.color ? sample.color.data() : nullptr;
    targets.depth = kinds.depth ? sample.depth.data() : nullptr;
    targets.labels = hasLabels ? sample.labels.data() : nullptr;
    targets.normals = kinds.normals ? sample.normals.data() : nullptr;
    m_times.posing += KrDatasetClock::now() - start;
    const bool isDrawn = drawTimed([&] { return scene.draw(shot.state, options, targets, reason); });
    if (isDrawn) {
        describeFrame(shot, sample);
    }
    return isDrawn;
}

bool KrDatasetScene::drawTimed(const std::function<bool()>& draw)
{
    const double start = KrDatasetClock::now();
    const double readBefore = m_drawing->scene.readingTime();
    const bool isDrawn = draw();
    const double reading = m_drawing->scene.readingTime() - readBefore;
    m_times.reading += reading;
    m_times.drawing += KrDatasetClock::now() - start - reading;
    return isDrawn;
}

void KrDatasetScene::describeFrame(const KrDatasetShot& shot, KrDatasetSample& sample)
{
    KrFrameDescription& frame = sample.description;
    frame = KrFrameDescription();
    m_drawing->scene.describe(frame);
    frame.intrinsics = shot.intrinsics;
    frame.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;
    // Windows count what they have drawn, which depends on who draws.
    frame.frameNumber = static_cast<unsigned int>(sample.number);
    for (std::size_t m = 0; m < frame.manipulators.size() && m < m_manipulatorNames.size(); ++m) {
        frame.manipulators[m].name = m_manipulatorNames[m];
    }
}

bool KrDatasetScene::fillParts(const KrDatasetShot& shot, KrDatasetSample& sample, std::string& reason)
{
    sample.parts.clear();
    const KrDatasetKinds& kinds = m_recipe.kinds;
    const auto drawMasks = [&] {
        return m_drawing->scene.drawAmodal(shot.state, levelOf(m_recipe.labelLevel), m_drawing->masks, reason);
    };
    if (kinds.masks && !drawTimed(drawMasks)) {
        return false;
    }
    const KrDatasetClock clock(m_times.parts);
    if (!kinds.labels && !kinds.masks) {
        // They were there to see how much is covered.
        sample.labels.clear();
        return true;
    }
    const osg::Matrixd worldToOptical = matrixOf(shot.opticalToWorld.inverse());
    std::vector<std::vector<Transformation>> links = linkPoses(shot.state);
    sample.parts.resize(m_info.parts.size());
    for (std::size_t i = 0; i < sample.parts.size(); ++i) {
        const KrDatasetPart& known = m_info.parts[i];
        KrDatasetSample::Part& part = sample.parts[i];
        part = KrDatasetSample::Part();
        part.label = known.label;
        // Bodies between links hang under the base.
        const std::vector<Transformation>& poses = links[known.manipulatorIndex];
        part.linkToWorld = matrixOf(poses[known.linkIndex < poses.size() ? known.linkIndex : 0]);
        part.linkToOptical = part.linkToWorld * worldToOptical;
    }
    const std::uint32_t* label = sample.labels.data();
    for (unsigned int y = 0; y < sample.height; ++y) {
        for (unsigned int x = 0; x < sample.width; ++x, ++label) {
            if (*label != 0) {
                KrDatasetSample::Part& part = sample.parts[*label - 1];
                ++part.visiblePixels;
                grow(part.visibleBox, x, y);
            }
        }
    }
    if (kinds.masks) {
        for (KrDatasetSample::Part& part : sample.parts) {
            fillMask(sample, part);
        }
    }
    return true;
}

std::vector<std::vector<KrCoordinateSystemTransformation>>
KrDatasetScene::linkPoses(const KrManipulatorSystemState& state) const
{
    std::vector<std::vector<Transformation>> result;
    const KrXmlVectorType<KrIndividualManipulator>& manipulators = m_system.manipulatorSystem().manipulators();
    for (unsigned int m = 0; m < manipulators.size(); ++m) {
        const KrPositionState& position = state.positionStates()[m];
        std::vector<Transformation> poses;
        manipulators[m].linkPoses(position, poses);
        poses.insert(poses.begin(), position.baseTransformation());
        for (Transformation& pose : poses) {
            pose = manipulators[m].placement() * pose;
        }
        result.push_back(std::move(poses));
    }
    return result;
}

void KrDatasetScene::fillMask(const KrDatasetSample& sample, KrDatasetSample::Part& part)
{
    part.amodalPixels = m_drawing->masks.numPixels(part.label);
    if (part.amodalPixels == 0) {
        return;
    }
    std::vector<unsigned char>& mask = m_drawing->mask;
    mask.resize(std::size_t{sample.width} * sample.height);
    m_drawing->masks.mask(part.label, mask.data());
    // Most of a mask is empty: its rows are searched as bytes.
    for (unsigned int y = 0; y < sample.height; ++y) {
        const unsigned char* const row = mask.data() + std::size_t{y} * sample.width;
        if (const void* const first = std::memchr(row, 255, sample.width)) {
            const void* const last = ::memrchr(row, 255, sample.width);
            grow(part.amodalBox, static_cast<unsigned int>(static_cast<const unsigned char*>(first) - row), y);
            grow(part.amodalBox, static_cast<unsigned int>(static_cast<const unsigned char*>(last) - row), y);
        }
    }
    const KrDatasetSample::Box& box = part.amodalBox;
    part.amodalMask.resize(std::size_t{box.width} * box.height);
    for (std::size_t row = 0; row < box.height; ++row) {
        const auto from = mask.begin() + static_cast<std::ptrdiff_t>((box.y + row) * sample.width + box.x);
        std::copy(from, from + box.width, part.amodalMask.begin() + static_cast<std::ptrdiff_t>(row * box.width));
    }
}
