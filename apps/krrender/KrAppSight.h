#pragma once

#include <osg/Matrixd>

#include <string>

class KrFraming;

/// Judges what there is to see, in words for the user.
class KrAppSight
{
public:
    /// One sentence where a robot of this size (diagonal, m) has most likely lengths in another unit; else empty.
    static std::string sizeHint(double size);

    /// Why a picture shows nothing but its background: one clause.
    /// @param shown         everything that is drawn
    /// @param worldToClip   of the picture's camera
    /// @param width, height  of the picture, pixels
    static std::string whyEmpty(const KrFraming& shown, const osg::Matrixd& worldToClip, unsigned int width,
                                unsigned int height);
};
