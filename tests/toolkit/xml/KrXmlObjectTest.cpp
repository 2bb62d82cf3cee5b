#include <tests/support/Folder.h>
#include <tests/support/MessageRecorder.h>
#include <tests/toolkit/xml/KrXmlTestTypes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

std::string document(const std::string& inside, const std::string& tag = "sample")
{
    return "<" + tag + " xmlns=\"" + KrXmlNamespace::core() + "\">\n" + inside + "\n</" + tag + ">\n";
}

bool readText(KrXmlObject& object, const std::string& text)
{
    return object.readBuffer(text.data(), text.size(), "test.xml");
}

std::string written(const KrXmlObject& object)
{
    std::string text;
    EXPECT_TRUE(object.writeBuffer(text));
    return text;
}

const char* const kRequired = "<name>x</name><count>1</count>";

class FolderTest : public testing::Test
{
protected:
    std::string path(const char* name) const { return m_folder.path(name); }
    std::size_t numFiles() const { return m_folder.names().size(); }
    static std::string content(const std::string& path) { return contentOf(path); }

private:
    Folder m_folder;
};

using KrXmlFile = FolderTest;

} // namespace

TEST(KrXmlObject, EverythingComesBackThroughTextAndPrintsNothing)
{
    MessageRecorder messages;
    const Sample sample = Sample::full();
    EXPECT_TRUE(sample.selfTest());
    EXPECT_TRUE(Sample().selfTest());

    Sample copy;
    EXPECT_FALSE(copy.equality(&sample));
    ASSERT_TRUE(readText(copy, written(sample)));
    EXPECT_TRUE(copy.equality(&sample));
    EXPECT_EQ(copy.name.value(), sample.name.value());
    EXPECT_EQ(messages.count(), 0u);

    Mixed mixed;
    mixed.inner = sample;
    EXPECT_TRUE(mixed.selfTest());
}

TEST(KrXmlObject, SharedObjectsAreSharedAgain)
{
    Sample copy;
    ASSERT_TRUE(readText(copy, written(Sample::full())));
    const auto* const holder = dynamic_cast<const Ball*>(copy.bodies[0].get());
    ASSERT_NE(holder, nullptr);
    EXPECT_EQ(holder->child.get(), copy.bodies[1].get());
    EXPECT_EQ(copy.bodies[2].get(), nullptr);
}

TEST(KrXmlObject, CompoundsReadInAnyOrderAndFallBackToDefaults)
{
    Sample sample = Sample::full();
    ASSERT_TRUE(readText(sample, document("<!-- c --><count>5</count><?pi x?><name>n</name>")));
    EXPECT_EQ(sample.count.value(), 5);
    EXPECT_TRUE(sample.flag.value());
    EXPECT_EQ(sample.bodies.size(), 0u);

    sample = Sample::full();
    EXPECT_TRUE(sample.xmlInit());
    EXPECT_EQ(sample.name.value(), "unnamed");
    EXPECT_TRUE(sample == Sample());
    // Components are an object's own, also after copies.
    Sample copy(sample);
    copy.count = 8;
    EXPECT_FALSE(copy == sample);
    EXPECT_FALSE(sample.equality(nullptr));
    EXPECT_FALSE(sample.assign(Ball()));
}

TEST(KrXmlObject, PrefixesEncodingsAndCharacterDataAreUnderstood)
{
    Sample sample;
    const std::string core = KrXmlNamespace::core();
    ASSERT_TRUE(
        readText(sample, "<a:sample xmlns:a=\"" + core + "\" xmlns:b=\"" + core +
                             "\"><b:name><![CDATA[<x>]]> &amp; &#65;</b:name><a:count> 4 </a:count></a:sample>"));
    EXPECT_EQ(sample.name.value(), "<x> & A");

    ASSERT_TRUE(readText(sample, "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" +
                                     document("<name>\xE4</name><count>1</count>")));
    EXPECT_EQ(sample.name.value(), "\xC3\xA4");

    std::string wide = "\xFF\xFE";
    for (const char c : "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + document(kRequired)) {
        wide += c;
        wide += '\0';
    }
    EXPECT_TRUE(readText(sample, wide));
}

TEST(KrXmlObject, BadDocumentsGiveOneMessageWithPlaceAndKeepTheOldValue)
{
    struct Case
    {
        const char* what;
        std::string text;
        std::vector<const char*> told; ///< all in the message
    };
    const std::string good = document(kRequired);
    const std::string ball = "<name>x</name><count>1</count><bodies>\n";
    const std::string deep = [] {
        std::string text;
        for (int i = 0; i < 600; ++i) {
            text += "<children><sample>";
        }
        return text;
    }();
    std::string bomb = "<!DOCTYPE sample [<!ENTITY a \"aaaaaaaaaa\">";
    for (char c = 'b'; c < 'k'; ++c) {
        const std::string before = std::string("&") + char(c - 1) + ";";
        bomb += std::string("<!ENTITY ") + c + " \"" + before + before + before + before + before + before + before +
                before + before + before + "\">";
    }
    bomb += "<!ATTLIST sample x CDATA \"&j;&j;&j;\">]>" + good;

    const Case cases[] = {
        {"empty", "", {}},
        {"no XML", "hello", {"line 1"}},
        {"not closed", document("<name>x</nam>\n"), {"line 2", "\"name\""}},
        {"ends early", good.substr(0, good.size() - 9), {"line 3"}},
        {"wrong root", document(kRequired, "simple"), {"line 1", "\"simple\"", "\"sample\""}},
        {"no namespace", "<sample><name>x</name><count>1</count></sample>", {"line 1", "\"sample\""}},
        {"second root", good + good, {"line 4"}},
        {"text after root", good + "x", {"line 4"}},
        {"wrong type", document("<name>x</name>\n<count>many</count>"), {"line 3", "\"count\"", "many"}},
        {"too large", document("<name>x</name>\n<count>99999999999</count>"), {"line 3", "\"count\""}},
        {"missing", document("<name>x</name>"), {"line 1", "\"sample\"", "\"count\""}},
        {"unknown element", document("<name>x</name>\n\n<colour/>"), {"line 4", "\"colour\""}},
        {"other namespace", document("<name xmlns=\"urn:x\">x</name>\n"), {"line 2", "\"name\"", "urn:x"}},
        {"twice", document("<name>x</name>\n<name>x</name>"), {"line 3", "\"name\"", "twice"}},
        {"text among elements", document("<name>x</name>\n1"), {"\"sample\""}},
        {"element in text", document("<name>x\n<b/></name>"), {"line 3", "\"name\"", "\"b\""}},
        {"bad list item", document("<name>x</name><count>1</count><numbers>1 2 x 4</numbers>"), {"item 3", "\"x 4\""}},
        {"wrong item", document(ball + "<name/></bodies>"), {"line 3", "\"name\""}},
        {"unknown class", document(ball + "<item><cube/></item></bodies>"), {"line 3", "\"cube\""}},
        {"dangling ref", document(ball + "<item><ball ref=\"7\"/></item></bodies>"), {"line 3", "\"7\""}},
        {"same id twice",
         document(ball + "<item><ball id=\"1\"><radius>1</radius></ball></item>\n"
                         "<item><ball id=\"1\"><radius>1</radius></ball></item></bodies>"),
         {"line 4", "\"ball\"", "\"1\""}},
        {"an object in itself",
         document(ball +
                  "<item><ball id=\"1\"><radius>1</radius><child><ball ref=\"1\"/></child></ball></item></bodies>"),
         {"line 3", "\"1\""}},
        {"impossible value",
         document(ball + "<item><ball>\n<radius>-1</radius></ball></item></bodies>"),
         {"\"ball\"", "-1"}},
        {"key twice",
         document(std::string(kRequired) + "<map><entry><key>a</key><value>1</value></entry>"
                                           "<entry><key>a</key><value>1</value></entry></map>"),
         {"twice"}},
        {"too deep", document(deep), {"128"}},
        {"document type", "<!DOCTYPE sample>" + good, {"document types"}},
        {"external entity",
         "<!DOCTYPE sample [<!ENTITY f SYSTEM \"file:///etc/passwd\">]>" + document("<name>&f;</name><count>1</count>"),
         {"document types"}},
        {"expanding entities", bomb, {"document types"}},
        {"unknown entity", document("<name>&f;</name><count>1</count>"), {"line 2", "'f'"}},
        {"unknown prefix", document("<x:name>1</x:name>"), {"line 2", "x"}},
        {"unknown encoding", "<?xml version=\"1.0\" encoding=\"no-such\"?>" + good, {"line 1"}},
        {"bad UTF-8", document("<name>\xFF</name><count>1</count>"), {"line 2"}},
        {"zero byte", document(std::string("<name>a\0b</name><count>1</count>", 32)), {"line 2"}},
        {"attribute twice", "<sample xmlns=\"" + KrXmlNamespace::core() + "\" a=\"1\" a=\"2\"/>", {"line 1"}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        MessageRecorder messages;
        Sample sample = Sample::full();
        EXPECT_FALSE(readText(sample, test.text));
        const std::string message = messages.only();
        EXPECT_EQ(message.find("KrXmlReader - test.xml"), 0u) << message;
        EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 1) << message;
        for (const char* const told : test.told) {
            EXPECT_NE(message.find(told), std::string::npos) << message << " should tell " << told;
        }
        EXPECT_TRUE(sample.equality(std::make_unique<Sample>(Sample::full()).get()));
    }
}

TEST(KrXmlObject, DirectReadIsAllOrNothingToo)
{
    MessageRecorder messages;
    const std::string text = document("<name>new</name><count>2</count><numbers>1 2 x</numbers>");
    KrXmlReader reader;
    ASSERT_TRUE(reader.openBuffer(text.data(), text.size(), "direct"));
    Sample sample = Sample::full();
    EXPECT_FALSE(sample.read(reader));
    EXPECT_TRUE(sample == Sample::full());
    EXPECT_FALSE(reader.fail("and again"));
    EXPECT_EQ(messages.count(), 1u);
}

TEST(KrXmlObject, NoBufferIsAnEmptyDocument)
{
    MessageRecorder messages;
    Sample sample;
    EXPECT_FALSE(sample.readBuffer(nullptr, 0));
    EXPECT_EQ(messages.count(), 1u);
}

TEST(KrXmlObject, LineNumbersGoBeyondSixteenBits)
{
    MessageRecorder messages;
    Sample sample;
    EXPECT_FALSE(readText(sample, document(std::string(100000, '\n') + "<bad/>")));
    EXPECT_NE(messages.only().find("line 100002,"), std::string::npos) << messages.only();
}

TEST(KrXmlObject, LongListsAreReadInLinearTime)
{
    KrXmlVectorType<double> numbers;
    for (int i = 0; i < 2000000; ++i) {
        numbers.push_back(i * 0.001);
    }
    const std::string text = written(numbers);
    const auto start = std::chrono::steady_clock::now();
    KrXmlVectorType<double> copy;
    ASSERT_TRUE(readText(copy, text));
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(copy == numbers);
    // Tens of milliseconds; quadratic behaviour would take minutes.
    EXPECT_LT(seconds.count(), 20.0);
}

TEST(KrXmlObject, EndlessMarkupIsCutOff)
{
    MessageRecorder messages;
    Sample sample;
    EXPECT_FALSE(readText(sample, "<sample " + std::string(40u << 20, 'a')));
    EXPECT_NE(messages.only().find("4 MiB"), std::string::npos) << messages.only();
}

TEST(KrXmlObject, TextsOfAnyBytesAreReadBack)
{
    for (const std::string& text : {std::string("a\x01"), std::string("a\0b", 3), std::string("\xFF 100 %41"),
                                    std::string("\xEF\xBF\xBE"), std::string("50 %41 \xC3\xA4")}) {
        Sample sample = Sample::full();
        sample.name = text;
        sample.map.set(text, 1.0);
        Sample copy;
        EXPECT_TRUE(readText(copy, written(sample)));
        EXPECT_EQ(copy.name.value(), text);
        EXPECT_TRUE(copy == sample);
    }
    for (const char* const bad : {"<name encoding=\"percent\">%4</name>", "<name encoding=\"percent\">%4g</name>",
                                  "<name encoding=\"rot13\">a</name>"}) {
        MessageRecorder messages;
        Sample sample;
        EXPECT_FALSE(readText(sample, document(std::string(bad) + "<count>1</count>")));
        EXPECT_EQ(messages.count(), 1u);
    }
}

TEST(KrXmlObject, SharingIsWrittenAsTheDocumentHasIt)
{
    const boost::shared_ptr<Ball> ball(new Ball);
    Sample once;
    once.bodies.push_back(KrXmlPointerType<Body>(ball));
    const std::string alone = written(once);
    {
        const boost::shared_ptr<Ball> elsewhere = ball;
        EXPECT_EQ(written(once), alone) << "who else holds an object makes no difference";
    }
    Sample twice = once;
    twice.bodies.push_back(KrXmlPointerType<Body>(ball));
    EXPECT_NE(written(twice).find("ref="), std::string::npos);
    Sample copy;
    ASSERT_TRUE(readText(copy, written(twice)));
    EXPECT_EQ(copy.bodies[0].pointer(), copy.bodies[1].pointer());
    EXPECT_EQ(written(copy), written(twice));
}

TEST(KrXmlObject, WhatNoReaderWouldTakeIsNotWritten)
{
    {
        MessageRecorder messages;
        const boost::shared_ptr<Ball> bad(new Ball);
        bad->radius = -1.0;
        Sample sample;
        sample.bodies.push_back(KrXmlPointerType<Body>(bad));
        std::string out = "as it was";
        EXPECT_FALSE(sample.writeBuffer(out));
        EXPECT_EQ(out, "as it was");
        EXPECT_NE(messages.only().find("ball\": radius -1"), std::string::npos) << messages.only();
    }
    {
        MessageRecorder messages;
        const boost::shared_ptr<Ball> self(new Ball);
        self->child.set(self);
        Sample sample;
        sample.bodies.push_back(KrXmlPointerType<Body>(self));
        std::string out;
        EXPECT_FALSE(sample.writeBuffer(out));
        EXPECT_NE(messages.only().find("holds itself"), std::string::npos) << messages.only();
        self->child.set(boost::shared_ptr<Body>());
    }
    MessageRecorder messages;
    Sample root;
    Sample* last = &root;
    for (int i = 0; i < 600; ++i) {
        last->children.resize(1);
        last = &last->children[0];
    }
    std::string out;
    EXPECT_FALSE(root.writeBuffer(out));
    EXPECT_NE(messages.only().find("128"), std::string::npos) << messages.only();
}

TEST(KrXmlObject, LongTextIsWrittenWholeWhateverItsCharacters)
{
    // Pieces of a megabyte must not cut a character in two.
    std::string text = "x";
    while (text.size() < 3000000) {
        text += "\xE2\x82\xAC";
    }
    KrXmlBasicType<std::string> value(text);
    KrXmlBasicType<std::string> copy;
    const std::string xml = written(value);
    ASSERT_TRUE(readText(copy, xml));
    EXPECT_TRUE(copy.value() == text);
}

TEST(KrXmlObject, StreamsThatFailAreTold)
{
    MessageRecorder messages;
    std::ofstream closed;
    EXPECT_FALSE(Sample().writeStream(closed));
    EXPECT_EQ(messages.only().find("KrXmlObject::writeStream - "), 0u) << messages.only();

    std::istringstream stream(document(kRequired));
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    Sample sample;
    EXPECT_TRUE(sample.readStream(stream));
    EXPECT_EQ(messages.count(), 1u);
}

TEST_F(KrXmlFile, IsReplacedAsAWholeOrNotAtAll)
{
    MessageRecorder messages;
    const Sample sample = Sample::full();
    ASSERT_TRUE(sample.writeFile(path("a.xml")));
    ASSERT_EQ(::chmod(path("a.xml").c_str(), 0640), 0);
    const std::string before = content(path("a.xml"));
    const boost::shared_ptr<Ball> ball(new Ball);
    ball->radius = -1.0;
    Sample bad = sample;
    bad.bodies.push_back(KrXmlPointerType<Body>(ball));
    EXPECT_FALSE(bad.writeFile(path("a.xml")));
    EXPECT_EQ(content(path("a.xml")), before);
    EXPECT_EQ(messages.count(), 1u);

    // Through a link, which stays one; the mode stays, too.
    fs::create_symlink("a.xml", path("link.xml"));
    ASSERT_TRUE(Sample().writeFile(path("link.xml")));
    EXPECT_TRUE(fs::is_symlink(path("link.xml")));
    Sample copy = sample;
    ASSERT_TRUE(copy.readFile(path("a.xml")));
    EXPECT_TRUE(copy == Sample());
    EXPECT_EQ(fs::status(path("a.xml")).permissions(), fs::perms(0640));
    EXPECT_EQ(numFiles(), 2u);
}

TEST_F(KrXmlFile, ThatCannotBeOpenedIsToldWithItsNameAndReason)
{
    Sample sample;
    for (const std::string& bad : {path("none.xml"), path(""), std::string()}) {
        MessageRecorder messages;
        EXPECT_FALSE(sample.readFile(bad));
        EXPECT_NE(messages.only().find(bad + ": cannot be "), std::string::npos) << messages.only();
    }
    for (const std::string& bad : {path("none/a.xml"), path("")}) {
        MessageRecorder messages;
        EXPECT_FALSE(sample.writeFile(bad));
        EXPECT_NE(messages.only().find(bad + ": cannot be written: "), std::string::npos) << messages.only();
    }
    MessageRecorder messages;
    EXPECT_FALSE(sample.writeFile("/dev/full"));
    EXPECT_NE(messages.only().find("No space"), std::string::npos) << messages.only();
    EXPECT_EQ(numFiles(), 0u);
}

TEST_F(KrXmlFile, TellsItsFolder)
{
    ASSERT_TRUE(Sample().writeFile(path("a.xml")));
    KrXmlReader reader;
    ASSERT_TRUE(reader.openFile(path("a.xml")));
    EXPECT_EQ(reader.documentFolder(), path(""));
    const std::string text = document(kRequired);
    ASSERT_TRUE(reader.openBuffer(text.data(), text.size(), "b"));
    EXPECT_EQ(reader.documentFolder(), "");
}

TEST(KrXmlSocket, CarriesADocumentLargerThanItsBuffer)
{
    Sample sample = Sample::full();
    for (int i = 0; i < 200000; ++i) {
        sample.numbers.push_back(i / 7.0);
    }
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    std::thread writer([&] {
        EXPECT_TRUE(sample.writeSocket(ends[0]));
        ::shutdown(ends[0], SHUT_WR);
    });
    Sample copy;
    EXPECT_TRUE(copy.readSocket(ends[1]));
    writer.join();
    EXPECT_TRUE(copy == sample);

    // A peer that has gone must not end the process.
    MessageRecorder messages;
    ::close(ends[1]);
    EXPECT_FALSE(sample.writeSocket(ends[0]));
    EXPECT_EQ(messages.only().find("KrXmlObject::writeSocket - "), 0u) << messages.only();
    ::close(ends[0]);
}
