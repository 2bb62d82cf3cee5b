#pragma once

#include <dataset/KrDatasetInfo.h>
#include <dataset/KrDatasetSample.h>

#include <osg/Matrixd>

#include <array>
#include <string>

/// The numbers of samples as JSON text, for the formats.
namespace KrSampleJson
{

/// What is known of a sample beside its images: the description of its frame, which is read as one, with two members
/// more. docs/dataset-formats.md tells them.
std::string text(const KrDatasetInfo& info, const KrDatasetSample& sample);

/// "[x, y, width, height]".
std::string box(const KrDatasetSample::Box& box);
/// "000000123": the file name of a sample, without folder and extension. Without a dot.
std::string name(std::uint64_t number);

/// Rows of the matrix that multiplies column vectors, one after the other: the rotation of a pose.
std::array<double, 9> rotation(const osg::Matrixd& pose);
/// Of a pose, in its unit.
std::array<double, 3> translation(const osg::Matrixd& pose);

} // namespace KrSampleJson
