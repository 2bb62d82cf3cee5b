#include <dataset/formats/private/KrSampleJson.h>

#include <toolkit/foundation/private/KrJson.h>

#include <cstdio>

namespace
{

/// Four rows of the matrix that multiplies column vectors, as in the description of the frame.
std::string matrix(const osg::Matrixd& pose)
{
    const std::array<int, 4> indices = {0, 1, 2, 3};
    return KrJson::array(indices, " ", [&](int row) {
        return KrJson::array(indices, " ", [&](int column) { return KrJson::number(pose(column, row)); });
    });
}

std::string part(const KrDatasetInfo& info, const KrDatasetSample::Part& part)
{
    const KrDatasetPart& known = info.parts[part.label - 1];
    KrJson::Object object;
    object.count("label", part.label)
        .count("category", known.category)
        .string("name", known.name)
        .raw("linkToOptical", matrix(part.linkToOptical))
        .raw("linkToWorld", matrix(part.linkToWorld))
        .raw("visiblePixels", std::to_string(part.visiblePixels))
        .raw("visibleBox", KrSampleJson::box(part.visibleBox));
    if (info.kinds.masks) {
        object.raw("amodalPixels", std::to_string(part.amodalPixels))
            .raw("amodalBox", KrSampleJson::box(part.amodalBox));
    }
    return "\n  " + object.text();
}

} // namespace

std::string KrSampleJson::text(const KrDatasetInfo& info, const KrDatasetSample& sample)
{
    const std::string which = KrJson::Object()
                                  .raw("number", std::to_string(sample.number))
                                  .raw("state", std::to_string(sample.state))
                                  .string("camera", info.cameras[sample.camera])
                                  .text();
    const std::string parts =
        KrJson::array(sample.parts, "", [&](const KrDatasetSample::Part& p) { return part(info, p); });
    std::string text = sample.description.json();
    text.erase(text.find_last_of('}'));
    return text + ",\n\"sample\": " + which + ",\n\"parts\": " + parts + "}\n";
}

std::string KrSampleJson::box(const KrDatasetSample::Box& box)
{
    return KrJson::array(std::array<unsigned int, 4>{box.x, box.y, box.width, box.height}, " ",
                         [](unsigned int number) { return std::to_string(number); });
}

std::string KrSampleJson::name(std::uint64_t number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%09llu", static_cast<unsigned long long>(number));
    return text;
}

std::array<double, 9> KrSampleJson::rotation(const osg::Matrixd& pose)
{
    std::array<double, 9> rows = {};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        // The scene graph's matrices multiply row vectors: theirs is the transposed one.
        rows[i] = pose(static_cast<int>(i % 3), static_cast<int>(i / 3));
    }
    return rows;
}

std::array<double, 3> KrSampleJson::translation(const osg::Matrixd& pose)
{
    return {pose(3, 0), pose(3, 1), pose(3, 2)};
}
