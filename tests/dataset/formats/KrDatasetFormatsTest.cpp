#include <dataset/KrDatasetFormat.h>
#include <dataset/formats/private/KrPartModel.h>
#include <dataset/formats/private/KrRunLengths.h>
#include <tests/dataset/formats/SampleScene.h>
#include <tests/support/Program.h>
#include <toolkit/deformation/KrDeformationPhysicalExtent.h>

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <sys/resource.h>

namespace
{

constexpr const char* kFormats[] = {"folders", "webdataset", "bop", "coco"};

/// Files by their path in the folder, with what they hold.
std::map<std::string, std::string> filesIn(const std::string& folder)
{
    std::map<std::string, std::string> result;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            result[std::filesystem::relative(entry.path(), folder).string()] = contentOf(entry.path().string());
        }
    }
    return result;
}

std::string refusal(const std::string& format, const KrDatasetInfo& info)
{
    std::string reason;
    const bool isGood = KrDatasetFormat::find(format)->check(info, reason);
    EXPECT_EQ(isGood, reason.empty()) << format;
    return reason;
}

/// Until its end files hold no more than so many bytes, as on a disk that is full.
class SmallDisk
{
public:
    explicit SmallDisk(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SmallDisk() { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    rlimit m_before = {};
};

TEST(KrDatasetFormats, ReadersOfTheFormatsFindWhatWasWritten)
{
    const SampleScene scene;
    const Folder truth;
    scene.writeTruth(truth);
    for (const std::string format : kFormats) {
        const Folder folder;
        ASSERT_EQ(scene.write(format, folder.path("set")), "") << format;
        const Answer answer =
            runCommand(KR_PYTHON " " KR_CHECK " " + format + " " + folder.path("set") + " " + truth.path(""));
        if (answer.status == 77) {
            GTEST_SKIP() << "numpy is missing";
        }
        EXPECT_EQ(answer.status, 0) << format << ": " << answer.err;
    }
}

TEST(KrDatasetFormats, BytesFollowFromTheSamplesAlone)
{
    // The same samples in one shard more: what is told of one sample does not depend on its neighbours.
    const SampleScene scene(4, 2);
    for (const std::string format : kFormats) {
        const Folder one, two;
        ASSERT_EQ(scene.write(format, one.path("a")), "");
        ASSERT_EQ(scene.write(format, two.path("another")), "");
        const auto files = filesIn(one.path("a"));
        EXPECT_GE(files.size(), 2u) << format;
        EXPECT_TRUE(files == filesIn(two.path("another"))) << format;
        // What belongs to the set is made again when it is asked for again.
        std::string reason;
        EXPECT_TRUE(KrDatasetFormat::find(format)->writeSet(scene.info, one.path("a"), reason)) << reason;
        EXPECT_TRUE(files == filesIn(one.path("a"))) << format;
    }
}

TEST(KrDatasetFormats, WhatAFormatCannotHoldIsRefusedInASentence)
{
    const SampleScene scene;
    for (const std::string format : kFormats) {
        EXPECT_EQ(refusal(format, scene.info), "");
        KrDatasetInfo many = scene.info;
        many.parts.resize(65536, many.parts.back());
        EXPECT_EQ(refusal(format, many), "label images hold labels up to 65535, and the scene has 65536 parts");
        many.parts.resize(65535);
        EXPECT_EQ(refusal(format, many), "") << format;
    }
    KrDatasetInfo info = scene.info;
    info.samplesPerShard = 1001;
    EXPECT_EQ(refusal("bop", info),
              "a scene of the format \"bop\" has at most 1000 images, and shards of 1001 samples are asked for");
    info = scene.info;
    info.parts[2].link.clear();
    EXPECT_EQ(refusal("bop", info),
              "objects of the format \"bop\" are rigid, and \"two/base\" has links that move: label links");
    info = scene.info;
    info.kinds.depth = false;
    EXPECT_EQ(refusal("bop", info), "the format \"bop\" needs the kinds color, depth and masks");
    EXPECT_EQ(refusal("coco", info), "");
    info.kinds.labels = info.kinds.masks = false;
    EXPECT_EQ(refusal("coco", info), "the format \"coco\" needs the kinds color and labels");
    EXPECT_EQ(refusal("webdataset", info), "");
}

TEST(KrDatasetFormats, AFullDiskIsTold)
{
    const SampleScene scene(1, 1);
    for (const std::string format : kFormats) {
        // What one file takes after the other fails: each of them at its beginning or in the middle.
        std::size_t largest = 0;
        {
            const Folder whole;
            ASSERT_EQ(scene.write(format, whole.path("set")), "");
            for (const auto& [name, content] : filesIn(whole.path("set"))) {
                largest = std::max(largest, content.size());
            }
        }
        for (const double share : {0.0, 0.01, 0.1, 0.5, 0.999}) {
            const Folder folder;
            const SmallDisk disk(static_cast<rlim_t>(share * static_cast<double>(largest)));
            const std::string reason = scene.write(format, folder.path("set"));
            EXPECT_NE(reason.find("cannot write " + folder.path("set")), std::string::npos) << format << ": " << reason;
            EXPECT_NE(reason.find("File too large"), std::string::npos) << format << ": " << reason;
        }
    }
}

TEST(KrDatasetFormats, WhatBelongsToTheSetIsWholeOrAsItWas)
{
    const SampleScene scene;
    for (const std::string format : {"bop", "coco"}) {
        const Folder folder;
        ASSERT_EQ(scene.write(format, folder.path("set")), "");
        const auto before = filesIn(folder.path("set"));
        for (const rlim_t bytes : {10, 200, 1000}) {
            const SmallDisk disk(bytes);
            std::string reason;
            EXPECT_FALSE(KrDatasetFormat::find(format)->writeSet(scene.info, folder.path("set"), reason));
            EXPECT_NE(reason.find("File too large"), std::string::npos) << format << ": " << reason;
        }
        EXPECT_TRUE(filesIn(folder.path("set")) == before) << format;
    }
}

TEST(KrDatasetFormats, AnnotationsOfABrokenShardAreNotTakenOver)
{
    const SampleScene scene;
    const Folder folder;
    ASSERT_EQ(scene.write("coco", folder.path("set")), "");
    const std::string joined = contentOf(folder.path("set/annotations.json"));
    const std::string name = "set/shard-000001/annotations.json";
    const std::string whole = contentOf(folder.path(name));
    std::string deep = whole;
    deep.insert(deep.find("\n{\"id\": 13") + 1, std::string(100000, '[') + "\n");
    for (const std::string& content : {whole.substr(0, whole.size() / 2), whole.substr(0, whole.size() - 4),
                                       std::string(), std::string("no JSON"), deep}) {
        folder.write(name, content);
        std::string reason;
        EXPECT_FALSE(KrDatasetFormat::find("coco")->writeSet(scene.info, folder.path("set"), reason));
        EXPECT_NE(reason.find("it is not as it was written"), std::string::npos) << reason;
        EXPECT_EQ(contentOf(folder.path("set/annotations.json")), joined);
    }
    std::filesystem::remove(folder.path(name));
    std::string reason;
    EXPECT_FALSE(KrDatasetFormat::find("coco")->writeSet(scene.info, folder.path("set"), reason));
    EXPECT_NE(reason.find("there is no such file"), std::string::npos) << reason;
}

TEST(KrPartModel, WhatBendsIsAtRestWhateverWasDrawnLast)
{
    const auto hose = boost::make_shared<KrDeformationPhysicalExtent>();
    hose->setMesh(*Systems::box(KrVector(1.0, 1.0, 1.0), KrVector(0.0, 0.0, 0.0))->triExtent());
    std::vector<KrVector> twice = hose->vertices();
    for (KrVector& vertex : twice) {
        vertex *= 2.0;
    }
    ASSERT_TRUE(hose->setPose("bent", twice) && hose->setPoseJoint(0, "arm", 1.0));
    KrIndividualManipulator robot("robot");
    robot.addShape(hose);
    KrManipulatorSystem manipulators;
    manipulators.manipulators().push_back(robot);
    const KrStatedSystem system(manipulators);
    KrDatasetInfo info;
    info.system = &system;
    info.parts = {{1, 1, "robot/base", "robot", "base", 0, 0, 0}};
    const auto size = [&] { return KrPartModel(info, info.parts[0]).size()[0]; };
    EXPECT_EQ(size(), 1000.0);
    ASSERT_TRUE(hose->setWeight(0, 1.0));
    EXPECT_EQ(size(), 1000.0);
    // Without a joint it is part of the shape.
    ASSERT_TRUE(hose->setPoseJoint(0, "", 0.0));
    EXPECT_EQ(size(), 2000.0);
}

TEST(KrRunLengths, GoesDownTheColumnsAndBeginsWithZeros)
{
    KrDatasetSample sample;
    sample.width = 3;
    sample.height = 2;
    sample.labels = {1, 2, 2, //
                     2, 2, 0};
    sample.parts.resize(3);
    std::vector<KrRunLengths> masks;
    KrRunLengths::ofLabels(sample, masks);
    EXPECT_EQ(masks[0].json(sample), "{\"size\": [2, 3], \"counts\": [0,1,5]}");
    // One run over the ends of two columns.
    EXPECT_EQ(masks[1].json(sample), "{\"size\": [2, 3], \"counts\": [1,4,1]}");
    EXPECT_TRUE(masks[2].isEmpty());
    EXPECT_EQ(masks[2].json(sample), "{\"size\": [2, 3], \"counts\": [6]}");

    sample.parts[0].amodalBox = {1, 0, 2, 2};
    sample.parts[0].amodalMask = {255, 0, 255, 255};
    masks[0].setAmodal(sample, sample.parts[0]);
    EXPECT_EQ(masks[0].json(sample), "{\"size\": [2, 3], \"counts\": [2,2,1,1]}");
}

} // namespace
