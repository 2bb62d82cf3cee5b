#include <toolkit/grid/KrGridFile.h>
#include <toolkit/grid/KrGridPhysicalExtent.h>

#include <tests/support/Folder.h>
#include <tests/support/MessageRecorder.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

class KrGridFileTest : public testing::Test
{
protected:
    std::string write(const std::string& name, const std::string& content) const { return folder.write(name, content); }
    bool read(const std::string& content) { return KrGridFile::read(write("field", content), grid); }
    /// Corners and counts.
    void expectBox(const KrVector& minimum, const KrVector& maximum, const KrVector& counts) const
    {
        double scale = 0.0;
        KrVector lower, upper, dimensions, inflection;
        grid.layout(scale, lower, upper, dimensions, inflection);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            EXPECT_NEAR(lower[axis], minimum[axis], 1e-12) << axis;
            EXPECT_NEAR(upper[axis], maximum[axis], 1e-12) << axis;
            EXPECT_EQ(dimensions[axis], counts[axis]) << axis;
        }
    }

    const Folder folder;
    KrGridPhysicalExtent grid;
};

std::string document(const std::string& values)
{
    return "<grid xmlns=\"urn:kr:core\"><minimum>0 0 0</minimum><maximum>1 1 1</maximum><cells>2 1 1</cells>" + values +
           "</grid>";
}

const std::string kNrrd = "NRRD0004\n# of a test\ndimension: 3\nsizes: 2 1 3\ntype: int16\n";
/// 1, -2, 3, 256, 5, 6 as 16-bit words, most significant byte first.
const std::string kBigWords("\x00\x01\xff\xfe\x00\x03\x01\x00\x00\x05\x00\x06", 12);
const std::vector<double> kValues = {1.0, -2.0, 3.0, 256.0, 5.0, 6.0};
/// kBigWords as the program gzip packs them.
const unsigned char kGzip[] = {0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0xff, 0x01, 0x0c, 0x00, 0xf3,
                               0xff, 0x00, 0x01, 0xff, 0xfe, 0x00, 0x03, 0x01, 0x00, 0x00, 0x05, 0x00, 0x06};

} // namespace

TEST_F(KrGridFileTest, ReadsEveryEncodingOfNrrd)
{
    const std::string place = "space origin: (1,2,3)\nspace directions: (0.5,0,0) (0,1,0) (0,0,2)\n";
    ASSERT_TRUE(read(kNrrd + place + "encoding: raw\nendian: big\n\n" + kBigWords));
    EXPECT_EQ(grid.values(), kValues);
    expectBox(KrVector(0.75, 1.5, 2.0), KrVector(1.75, 2.5, 8.0), KrVector(2.0, 1.0, 3.0));

    ASSERT_TRUE(read(kNrrd + "spacings: 1 1 1\nencoding: ascii\n\n1 -2 3\n256 5 6\n"));
    EXPECT_EQ(grid.values(), kValues);
    expectBox(KrVector(-0.5, -0.5, -0.5), KrVector(1.5, 0.5, 2.5), KrVector(2.0, 1.0, 3.0));

    // The trailer with check sum and length is not needed.
    const std::string packed(reinterpret_cast<const char*>(kGzip), sizeof kGzip);
    ASSERT_TRUE(read(kNrrd + "encoding: gzip\nendian: big\n\n" + packed));
    EXPECT_EQ(grid.values(), kValues);

    write("words.raw", "skipped" + kBigWords);
    ASSERT_TRUE(read(kNrrd + "data file: words.raw\nbyte skip: -1\nencoding: raw\nendian: big\n"));
    EXPECT_EQ(grid.values(), kValues);
}

TEST_F(KrGridFileTest, TakesTheEndsOfAnAxisAsItsCentersSay)
{
    const std::string data = "encoding: text\n\n1 -2 3 256 5 6\n"; // 2 x 1 x 3
    const std::string cells = "centerings: cell cell cell\n";
    ASSERT_TRUE(read(kNrrd + "axis mins: -1 0 2\nspacings: 0.5 1 2\n" + cells + data));
    expectBox(KrVector(-1.0, 0.0, 2.0), KrVector(0.0, 1.0, 8.0), KrVector(2.0, 1.0, 3.0));
    ASSERT_TRUE(read(kNrrd + "axis mins: -1 0 2\nspacings: 0.5 1 2\n" + data));
    expectBox(KrVector(-1.25, -0.5, 1.0), KrVector(-0.25, 0.5, 7.0), KrVector(2.0, 1.0, 3.0));
    ASSERT_TRUE(read(kNrrd + "space origin: (-1,0,2)\nspacings: 0.5 1 2\n" + cells + data));
    expectBox(KrVector(-1.25, -0.5, 1.0), KrVector(-0.25, 0.5, 7.0), KrVector(2.0, 1.0, 3.0));

    ASSERT_TRUE(read(kNrrd + "axis mins: 0 0 0\naxis maxs: 4 3 6\ncenters: cell cell node\n" + data));
    expectBox(KrVector(0.0, 0.0, -1.5), KrVector(4.0, 3.0, 7.5), KrVector(2.0, 1.0, 3.0));
    ASSERT_TRUE(read(kNrrd + "axis mins: 0 0 0\naxis maxs: 4 3 6\nspacings: 2 3 2\n" + cells + data));
    expectBox(KrVector(0.0, 0.0, 0.0), KrVector(4.0, 3.0, 6.0), KrVector(2.0, 1.0, 3.0));
}

TEST_F(KrGridFileTest, UnpacksAllMembersAndSkipsBytesOfWhatIsUnpacked)
{
    // The deflate stream of one stored block is its length, the complement of that and the bytes.
    const std::string head("\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\xff\x01", 11);
    const auto member = [&head](const std::string& bytes, const std::string& trailer) {
        const char size = static_cast<char>(bytes.size());
        const char lengths[4] = {size, 0, static_cast<char>(~size), '\xff'};
        return head + std::string(lengths, 4) + bytes + trailer;
    };
    // Check sum and length of the first four bytes.
    const std::string trailer("\x42\x97\xa7\xe9\x04\x00\x00\x00", 8);
    const std::string packed = member(kBigWords.substr(0, 4), trailer) + member(kBigWords.substr(4), "");
    ASSERT_TRUE(read(kNrrd + "encoding: gzip\nendian: big\n\n" + packed));
    EXPECT_EQ(grid.values(), kValues);

    const std::string skips = "line skip: 1\nbyte skip: 7\nencoding: gzip\nendian: big\n\na line\n";
    ASSERT_TRUE(read(kNrrd + skips + member("skipped" + kBigWords, "")));
    EXPECT_EQ(grid.values(), kValues);
}

TEST_F(KrGridFileTest, ReadsStructuredPointsAndCells)
{
    const std::string header = "DATASET STRUCTURED_POINTS\nDIMENSIONS 2 1 3\nORIGIN 1 2 3\nSPACING 0.5 1 2\n";
    const std::string scalars = "POINT_DATA 6\nSCALARS density short 1\nLOOKUP_TABLE default\n";
    ASSERT_TRUE(read("# vtk DataFile Version 3.0\na test\nBINARY\n" + header + scalars + kBigWords));
    EXPECT_EQ(grid.values(), kValues);
    expectBox(KrVector(0.75, 1.5, 2.0), KrVector(1.75, 2.5, 8.0), KrVector(2.0, 1.0, 3.0));

    ASSERT_TRUE(read("# vtk DataFile Version 2.0\na test\nASCII\nDATASET STRUCTURED_POINTS\nDIMENSIONS 3 2 4\n"
                     "ORIGIN 1 2 3\nASPECT_RATIO 1 1 1\nCELL_DATA 6\nSCALARS density float\n"
                     "LOOKUP_TABLE default\n1 -2 3 256 5 6\n"));
    EXPECT_EQ(grid.values(), kValues);
    expectBox(KrVector(1.0, 2.0, 3.0), KrVector(3.0, 3.0, 6.0), KrVector(2.0, 1.0, 3.0));
}

TEST_F(KrGridFileTest, SaysOnceWhatIsWrongWithAFileAndKeepsTheField)
{
    ASSERT_TRUE(read(kNrrd + "encoding: ascii\n\n1 -2 3 256 5 6"));
    const std::string vtk = "# vtk DataFile Version 3.0\na test\nASCII\n";
    const std::pair<std::string, std::string> cases[] = {
        {"no field at all", "neither NRRD nor legacy VTK"},
        {"NRRD0004\ndimension: 2\nsizes: 2 3\n", "2 dimensions"},
        {"NRRD0004\ndimension: 3\nsizes: 2 3\n", "not 3 numbers"},
        {"NRRD0004\ndimension: 3\nsizes: 2 0 3\n", "sizes"},
        {"NRRD0004\ndimension: 3\nsizes: 1e9 1e9 1e9\ntype: float\n", "sizes"},
        {"NRRD0004\ndimension: 3\nsizes: 500 500 500\ntype: double\nendian: little\nencoding: raw\n\n1", "bytes"},
        {"NRRD0004\ndimension: 3\nsizes: 500 500 500\ntype: double\nendian: little\nencoding: gzip\n\n1", "too short"},
        {"NRRD0004\ndimension: 3\nsizes: 500 500 500\ntype: double\nencoding: text\n\n1", "end early"},
        {kNrrd + "encoding: raw\n\n" + kBigWords, "endian"},
        {kNrrd + "encoding: gzip\nendian: big\n\nthis is not packed", "damaged"},
        {kNrrd + "encoding: ascii\n\n1 2 3 4 five 6", "value 5 of 6"},
        {kNrrd + "encoding: ascii\n\n1 2 3 4 inf 6", "finite"},
        {kNrrd + "spacings: 1 -1 1\nencoding: ascii\n\n1 2 3 4 5 6", "spacings"},
        {kNrrd + "space directions: (0,1,0) (1,0,0) (0,0,1)\nencoding: ascii\n\n1 2 3 4 5 6", "along the axes"},
        {kNrrd + "axis maxs: 1 1 1\nencoding: ascii\n\n1 2 3 4 5 6", "without axis mins"},
        {kNrrd + "axis mins: 0 0 0\naxis maxs: 4 4 4\nspacings: 1 1 1\nencoding: ascii\n\n1 2 3 4 5 6", "contradict"},
        {kNrrd + "byte skip: -1\nencoding: gzip\nendian: big\n\n" + kBigWords, "byte skip"},
        {kNrrd + "encoding: hex\n\n00", "encoding \"hex\""},
        {kNrrd + "data file: missing.raw\nencoding: raw\nendian: big\n", "missing"},
        {kNrrd + "data file: /etc/hostname\nencoding: raw\nendian: big\n", "not below its own folder"},
        {kNrrd + "data file: x/../../y.raw\nencoding: raw\nendian: big\n", "not below its own folder"},
        {vtk + "DATASET POLYDATA\n", "STRUCTURED_POINTS"},
        {vtk + "DATASET STRUCTURED_POINTS\nDIMENSIONS 2 1 3\nPOINT_DATA 6\nVECTORS v float\n", "VECTORS"},
        {vtk + "DATASET STRUCTURED_POINTS\nDIMENSIONS 2 1 3\nPOINT_DATA 6\n", "no scalars"},
    };
    for (const auto& [content, reason] : cases) {
        MessageRecorder messages;
        EXPECT_FALSE(read(content)) << content;
        EXPECT_EQ(messages.count(), 1u) << content;
        EXPECT_NE(messages.all().find(reason), std::string::npos) << content << "\n" << messages.all();
        EXPECT_NE(messages.all().find(folder.path("field")), std::string::npos) << messages.all();
        EXPECT_EQ(grid.values(), kValues);
    }
    MessageRecorder messages;
    EXPECT_FALSE(KrGridFile::read(folder.path("nowhere"), grid));
    EXPECT_EQ(messages.count(), 1u);
}

TEST_F(KrGridFileTest, ADocumentHoldsItsValuesAsBytesOrNamesAFileOfThem)
{
    // 1 and -2.5: 0x3f800000 and 0xc0200000 in 4 bytes, 0x3ff0... and 0xc004... in 8, least significant byte first.
    const std::vector<double> values = {1.0, -2.5};
    EXPECT_TRUE(
        grid.readFile(write("a.xml", document("<values encoding='base64' type='float32'>AACA\n PwAAIMA=</values>"))));
    EXPECT_EQ(grid.values(), values);
    std::string out;
    KrGridPhysicalExtent again;
    ASSERT_TRUE(grid.writeBuffer(out));
    ASSERT_TRUE(again.readBuffer(out.data(), out.size()));
    EXPECT_EQ(again.values(), values);

    write("values.raw", std::string("\x00\x00\x00\x00\x00\x00\xf0\x3f\x00\x00\x00\x00\x00\x00\x04\xc0", 16));
    KrGridPhysicalExtent other;
    EXPECT_TRUE(other.readFile(write("b.xml", document("<values file='values.raw' type='float64'/>"))));
    EXPECT_EQ(other.values(), values);

    // What comes without a folder names no file of this machine.
    for (const std::string& name : {std::string("values.raw"), write("own.raw", std::string(16, '\0'))}) {
        MessageRecorder messages;
        const std::string text = document(("<values file='" + name + "' type='float64'/>").c_str());
        EXPECT_FALSE(other.readBuffer(text.data(), text.size())) << name;
        EXPECT_EQ(messages.count(), 1u) << name;
    }

    // A file that knows its own type.
    write("values.nrrd", "NRRD0001\ntype: uint8\ndimension: 3\nsizes: 2 1 1\nencoding: text\n\n7 9\n");
    KrGridPhysicalExtent own;
    EXPECT_TRUE(own.readFile(write("d.xml", document("<values file='values.nrrd'/>"))));
    EXPECT_EQ(own.values(), (std::vector<double>{7.0, 9.0}));

    for (const char* wrong :
         {"<values encoding='base64' type='float32'>AACAPwAAIM</values>", "<values encoding='hex' type='float32'/>",
          "<values encoding='base64' type='float32'>AACA?wAAIMA=</values>", "<values file='values.raw'/>",
          "<values encoding='base64' type='float64'>AACAPwAAIMA=</values>", "<values file='none' type='float32'/>",
          "<values file='values.raw' type='float32'/>", "<values file='' type='float32'/>"}) {
        MessageRecorder messages;
        EXPECT_FALSE(other.readFile(write("c.xml", document(wrong)))) << wrong;
        EXPECT_EQ(messages.count(), 1u) << wrong;
        EXPECT_EQ(other.values(), values);
    }
}
