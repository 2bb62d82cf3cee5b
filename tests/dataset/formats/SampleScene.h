#pragma once

#include <dataset/KrDatasetFormat.h>
#include <dataset/KrDatasetSample.h>
#include <dataset/KrDatasetWriter.h>
#include <rendCore/capture/KrOpticalFrame.h>
#include <tests/support/Folder.h>
#include <tests/support/Systems.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

/// A data set whose every pixel is known without a renderer: rays against boxes.
///
/// Two crates of one class, each a base and an arm. The arm's box is turned in its link by a DH frame and shifted by a
/// placement; the right camera is so far away that tenths of a millimetre do not fit into 16 bits; the second crate's
/// base stands before part of the first one, and something is cut off by the picture.
class SampleScene
{
public:
    // The .npy file of its depths is a whole number of a tar archive's blocks: 128 + 4 * 56 * 36 = 16 * 512.
    static constexpr unsigned int kWidth = 56;
    static constexpr unsigned int kHeight = 36;

    explicit SampleScene(std::uint64_t numSamples = 4, std::uint64_t samplesPerShard = 3)
        : m_system(system())
    {
        info.name = "crates";
        info.rendererVersion = "0.0.0";
        info.recipeHash = std::string(64, 'a');
        info.width = kWidth;
        info.height = kHeight;
        info.kinds = {true, true, true, true, true};
        info.numSamples = numSamples;
        info.samplesPerShard = samplesPerShard;
        info.cameras = {"left", "right"};
        for (unsigned int i = 0; i < 4; ++i) {
            const std::string robot = i < 2 ? "one" : "two";
            const std::string link = i % 2 == 0 ? "base" : "arm";
            info.parts.push_back({i + 1, 1 + i % 2, robot + "/" + link, robot, link, i / 2, i % 2, 0});
        }
        info.categories = {{1, "crate/base", "crate"}, {2, "crate/arm", "crate"}};
        info.system = &m_system;
    }

    /// The picture that camera number % 2 takes of state number / 2.
    KrDatasetSample sample(std::uint64_t number) const
    {
        KrDatasetSample out;
        out.number = number;
        out.state = number / 2;
        out.camera = static_cast<unsigned int>(number % 2);
        out.width = kWidth;
        out.height = kHeight;
        const KrCameraIntrinsics lens{kWidth, kHeight, 44.0, 41.0, 29.25, 15.5};
        const osg::Matrixd worldToOptical = osg::Matrixd::rotate(0.1 + 0.2 * out.camera, osg::Vec3d(0.2, 1.0, 0.3)) *
                                            osg::Matrixd::translate(0.1, -0.05, 3.0 + 4.0 * out.camera);
        out.description.width = kWidth;
        out.description.height = kHeight;
        out.description.rowOrder = KrFrameDescription::RowOrder::TopRowFirst;
        out.description.intrinsics = lens;
        out.description.view = KrOpticalFrame::otherConvention(worldToOptical);
        out.description.manipulators = {{"one", {{"arm_joint", "continuous", 0.25}}}};
        for (unsigned int i = 0; i < 4; ++i) {
            KrDatasetSample::Part part;
            part.label = i + 1;
            part.linkToWorld = linkToWorld(i, out.state);
            part.linkToOptical = part.linkToWorld * worldToOptical;
            out.parts.push_back(part);
        }
        draw(lens, out);
        return out;
    }

    /// Writes all shards and what belongs to the set, below `folder`. The reason of a failure, empty for none.
    std::string write(const std::string& format, const std::string& folder) const
    {
        const KrDatasetFormat* const writerOf = KrDatasetFormat::find(format);
        std::string reason;
        for (std::uint64_t first = 0; first < info.numSamples; first += info.samplesPerShard) {
            const KrDatasetShard shard{first / info.samplesPerShard, first,
                                       std::min(info.samplesPerShard, info.numSamples - first)};
            const std::string path = folder + "/" + writerOf->shardFolder(shard.number);
            std::filesystem::create_directories(path);
            const auto writer = writerOf->writer(info, shard, path, reason);
            bool isGood = writer != nullptr;
            for (std::uint64_t i = 0; isGood && i < shard.count; ++i) {
                isGood = writer->add(sample(first + i), reason);
            }
            if (!isGood || !writer->finish(reason)) {
                return reason.empty() ? "no reason" : reason;
            }
        }
        return writerOf->writeSet(info, folder, reason) ? "" : reason;
    }

    /// What is in the samples, for checks in another language: truth.json, and the images as bare numbers.
    void writeTruth(const Folder& folder) const
    {
        nlohmann::json all = nlohmann::json::array();
        for (std::uint64_t number = 0; number < info.numSamples; ++number) {
            const KrDatasetSample s = sample(number);
            const KrCameraIntrinsics& lens = *s.description.intrinsics;
            nlohmann::json parts = nlohmann::json::array();
            for (const KrDatasetSample::Part& part : s.parts) {
                std::string mask(std::size_t{kWidth} * kHeight, '\0');
                for (std::size_t i = 0; i < part.amodalMask.size(); ++i) {
                    mask[(part.amodalBox.y + i / part.amodalBox.width) * kWidth + part.amodalBox.x +
                         i % part.amodalBox.width] = part.amodalMask[i] != 0 ? '\1' : '\0';
                }
                folder.write(std::to_string(number) + ".mask" + std::to_string(part.label), mask);
                parts.push_back({{"label", part.label},
                                 {"category", info.parts[part.label - 1].category},
                                 {"linkToOptical", columns(part.linkToOptical)}});
            }
            all.push_back({{"number", number},
                           {"lens", {lens.fx, lens.fy, lens.cx, lens.cy}},
                           {"worldToOptical", columns(s.description.opticalView())},
                           {"parts", parts}});
            writeValues(folder, number, "color", s.color);
            writeValues(folder, number, "depth", s.depth);
            writeValues(folder, number, "labels", s.labels);
            writeValues(folder, number, "normals", s.normals);
        }
        folder.write("truth.json", nlohmann::json({{"width", kWidth}, {"height", kHeight}, {"samples", all}}).dump());
    }

    KrDatasetInfo info;

private:
    static constexpr double kInfinity = std::numeric_limits<double>::infinity();

    static KrCoordinateSystemTransformation armDhFrame()
    {
        KrCoordinateSystemTransformation frame;
        const osg::Matrixd matrix =
            osg::Matrixd::rotate(0.4, osg::Vec3d(0.0, 1.0, 0.0)) * osg::Matrixd::translate(0.1, 0.0, 0.2);
        frame.setFrom16(matrix.ptr());
        return frame;
    }

    static KrManipulatorSystem system()
    {
        KrManipulatorSystem result;
        for (const char* name : {"one", "two"}) {
            KrIndividualManipulator robot(name);
            robot.addShape(Systems::box(size(0), centre(0)));
            KrManipulatorLink arm = Systems::turningLink("arm", KrVector(0.0, 0.0, 1.0));
            arm.jointKinematics().setDhFrame(armDhFrame());
            arm.addShape(Systems::box(size(1), centre(1)));
            robot.addChildLink(arm);
            result.manipulators().push_back(robot);
        }
        return result;
    }

    // Of the box of a part in its DH frame.
    static KrVector size(unsigned int i) { return i % 2 == 0 ? KrVector(0.8, 0.5, 0.6) : KrVector(1.1, 0.2, 0.3); }
    static KrVector centre(unsigned int i) { return i % 2 == 0 ? KrVector(0.0, 0.1, 0.0) : KrVector(0.4, 0.0, 0.1); }

    static osg::Matrixd linkToWorld(unsigned int i, std::uint64_t state)
    {
        // The second crate's arm is out of the picture in the second state.
        const double away = i == 3 && state == 1 ? 20.0 : 0.0;
        const osg::Matrixd base =
            osg::Matrixd::rotate(0.7 + 0.3 * static_cast<double>(state), osg::Vec3d(1.0, 1.0, 0.2)) *
            osg::Matrixd::translate(i < 2 ? -0.2 : 0.75, i < 2 ? 0.2 : -0.1, i < 2 ? 0.4 : -0.4);
        const osg::Matrixd arm = osg::Matrixd::rotate(0.5 * static_cast<double>(state), osg::Vec3d(0.0, 0.0, 1.0)) *
                                 osg::Matrixd::translate(0.1 + away, -0.4, 0.2);
        return i % 2 == 0 ? base : arm * base;
    }

    /// Where the ray from the eye to `direction` (z = 1) enters the part's box, as its z; the face's outer normal.
    static double depthOf(const KrDatasetSample::Part& part, const osg::Vec3d& direction, osg::Vec3d& normal)
    {
        const unsigned int i = part.label - 1;
        const KrVector c = centre(i);
        double values[16];
        armDhFrame().assign16(values);
        const osg::Matrixd dh = i % 2 == 0 ? osg::Matrixd() : osg::Matrixd(values);
        const osg::Matrixd boxToOptical = osg::Matrixd::translate(c.x(), c.y(), c.z()) * dh * part.linkToOptical;
        const osg::Matrixd opticalToBox = osg::Matrixd::inverse(boxToOptical);
        const osg::Vec3d origin = opticalToBox.getTrans();
        const osg::Vec3d ray = osg::Matrixd::transform3x3(direction, opticalToBox);
        const double half[] = {0.5 * size(i).x(), 0.5 * size(i).y(), 0.5 * size(i).z()};
        double enter = 0.0;
        double leave = kInfinity;
        for (int axis = 0; axis < 3; ++axis) {
            const double side = ray[axis] > 0.0 ? -1.0 : 1.0;
            const double in = (side * half[axis] - origin[axis]) / ray[axis];
            leave = std::min(leave, (-side * half[axis] - origin[axis]) / ray[axis]);
            if (in > enter) {
                enter = in;
                osg::Vec3d face;
                face[axis] = side;
                normal = osg::Matrixd::transform3x3(face, boxToOptical);
            }
        }
        return enter < leave ? enter : kInfinity;
    }

    /// A box about pixels, grown pixel by pixel.
    static void grow(KrDatasetSample::Box& box, std::uint64_t& count, unsigned int x, unsigned int y)
    {
        if (count++ == 0) {
            box = {x, y, 1, 1};
            return;
        }
        const unsigned int right = std::max(box.x + box.width, x + 1);
        const unsigned int bottom = std::max(box.y + box.height, y + 1);
        box.x = std::min(box.x, x);
        box.y = std::min(box.y, y);
        box.width = right - box.x;
        box.height = bottom - box.y;
    }

    static void draw(const KrCameraIntrinsics& lens, KrDatasetSample& out)
    {
        std::vector<std::vector<unsigned char>> masks(4, std::vector<unsigned char>(std::size_t{kWidth} * kHeight));
        for (unsigned int y = 0; y < kHeight; ++y) {
            for (unsigned int x = 0; x < kWidth; ++x) {
                const osg::Vec3d direction((x + 0.5 - lens.cx) / lens.fx, (y + 0.5 - lens.cy) / lens.fy, 1.0);
                double nearest = kInfinity;
                osg::Vec3d seen;
                std::uint32_t label = 0;
                for (KrDatasetSample::Part& part : out.parts) {
                    osg::Vec3d normal;
                    const double depth = depthOf(part, direction, normal);
                    if (depth < kInfinity) {
                        masks[part.label - 1][std::size_t{y} * kWidth + x] = 255;
                        grow(part.amodalBox, part.amodalPixels, x, y);
                    }
                    if (depth < nearest) {
                        nearest = depth;
                        seen = normal;
                        label = part.label;
                    }
                }
                if (label != 0) {
                    KrDatasetSample::Part& part = out.parts[label - 1];
                    grow(part.visibleBox, part.visiblePixels, x, y);
                }
                out.labels.push_back(label);
                out.depth.push_back(static_cast<float>(nearest));
                for (int i = 0; i < 3; ++i) {
                    out.normals.push_back(static_cast<float>(seen[i]));
                    out.color.push_back(static_cast<unsigned char>(127.0 + 120.0 * seen[i] + label));
                }
            }
        }
        for (KrDatasetSample::Part& part : out.parts) {
            const KrDatasetSample::Box& box = part.amodalBox;
            for (unsigned int y = box.y; y < box.y + box.height; ++y) {
                const auto row = masks[part.label - 1].begin() + y * kWidth + box.x;
                part.amodalMask.insert(part.amodalMask.end(), row, row + box.width);
            }
        }
    }

    /// Sixteen numbers of the matrix that multiplies column vectors, row by row.
    static std::vector<double> columns(const osg::Matrixd& matrix)
    {
        std::vector<double> result;
        for (int i = 0; i < 16; ++i) {
            result.push_back(matrix(i % 4, i / 4));
        }
        return result;
    }

    template <typename Number>
    static void writeValues(const Folder& folder, std::uint64_t number, const char* name,
                            const std::vector<Number>& values)
    {
        folder.write(std::to_string(number) + "." + name,
                     {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(Number)});
    }

    KrStatedSystem m_system;
};
