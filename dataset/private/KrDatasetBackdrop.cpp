#include <dataset/private/KrDatasetBackdrop.h>

#include <toolkit/foundation/KrReason.h>
#include <toolkit/image/KrImage.h>

#include <osg/Camera>
#include <osg/Depth>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osg/Image>
#include <osg/TexEnv>
#include <osg/Texture2D>

#include <cstring>

KrDatasetBackdrop::KrDatasetBackdrop() = default;
KrDatasetBackdrop::~KrDatasetBackdrop() = default;

void KrDatasetBackdrop::attach(osg::Group& root)
{
    m_texture = new osg::Texture2D;
    m_texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
    m_texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    m_texture->setResizeNonPowerOfTwoHint(false);
    m_texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    m_texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);

    m_quad = osg::createTexturedQuadGeometry(osg::Vec3(), osg::Vec3(1.0f, 0.0f, 0.0f), osg::Vec3(0.0f, 1.0f, 0.0f));
    m_quad->setUseDisplayList(false);
    m_quad->setDataVariance(osg::Object::DYNAMIC);
    m_quad->setCullingActive(false);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(m_quad);
    geode->setCullingActive(false);

    m_camera = new osg::Camera;
    m_camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    m_camera->setProjectionMatrixAsOrtho2D(0.0, 1.0, 0.0, 1.0);
    m_camera->setRenderOrder(osg::Camera::NESTED_RENDER);
    m_camera->setClearMask(0);
    m_camera->setAllowEventFocus(false);
    m_camera->setCullingActive(false);
    // It lies nowhere: the planes are fitted to what else is seen.
    m_camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    osg::StateSet& states = *m_camera->getOrCreateStateSet();
    constexpr int kBeforeAll = -1000;
    states.setRenderBinDetails(kBeforeAll, "RenderBin");
    states.setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    states.setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS, 0.0, 1.0, false));
    states.setTextureAttributeAndModes(0, m_texture);
    states.setTextureAttribute(0, new osg::TexEnv(osg::TexEnv::REPLACE));
    m_camera->addChild(geode);
    root.addChild(m_camera);
}

bool KrDatasetBackdrop::show(const std::string& path, double aspectRatio, std::string& reason)
{
    if (path == m_path) {
        return true;
    }
    const KrReason said;
    KrImage picture;
    if (!picture.readFile(path, KrImage::BottomRowFirst)) {
        reason = said.text(path + " is no picture");
        return false;
    }
    constexpr GLenum kFormats[] = {GL_LUMINANCE, GL_LUMINANCE_ALPHA, GL_RGB, GL_RGBA};
    const GLenum format = kFormats[picture.channels() - 1];
    const osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(static_cast<int>(picture.width()), static_cast<int>(picture.height()), 1, format,
                         GL_UNSIGNED_BYTE, 1);
    std::memcpy(image->data(), picture.data(), picture.sizeInBytes());
    // Opacity of a picture means nothing behind everything else.
    image->setInternalTextureFormat(picture.channels() < 3 ? GL_LUMINANCE : GL_RGB);
    m_texture->setImage(image);
    // The largest middle part that has the window's sides.
    const double own = static_cast<double>(picture.width()) / picture.height();
    const float halfWidth = own > aspectRatio ? static_cast<float>(0.5 * aspectRatio / own) : 0.5f;
    const float halfHeight = own > aspectRatio ? 0.5f : static_cast<float>(0.5 * own / aspectRatio);
    auto& coordinates = static_cast<osg::Vec2Array&>(*m_quad->getTexCoordArray(0));
    // In the order of the quad's corners: upper left, lower left, lower right, upper right.
    coordinates[0].set(0.5f - halfWidth, 0.5f + halfHeight);
    coordinates[1].set(0.5f - halfWidth, 0.5f - halfHeight);
    coordinates[2].set(0.5f + halfWidth, 0.5f - halfHeight);
    coordinates[3].set(0.5f + halfWidth, 0.5f + halfHeight);
    coordinates.dirty();
    m_path = path;
    return true;
}
