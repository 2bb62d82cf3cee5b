#include <tests/support/MessageRecorder.h>

#include <toolkit/foundation/KrFileUtil.h>
#include <toolkit/foundation/KrGL.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/KrReason.h>
#include <toolkit/foundation/KrString.h>
#include <toolkit/foundation/private/KrText.h>

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <thread>

TEST(KrPrint, FormatsTextOfAnyLengthAndKeepsItsLineEnd)
{
    MessageRecorder messages;
    const std::string longName(5000, 'x');
    Kr::Print::instance()->write(Kr::Print::Warning, "%s is %d%%\n", longName.c_str(), 7);
    EXPECT_EQ(messages.only(), longName + " is 7%\n");
}

TEST(KrReason, IsTheLastWarningOfThisThreadSinceThen)
{
    MessageRecorder messages;
    Kr::Print* const print = Kr::Print::instance();
    print->write(Kr::Print::Warning, "KrThing::read - earlier.\n");
    const KrReason reason;
    print->write(Kr::Print::Info, "KrThing::read - all is well.\n");
    std::thread([print] { print->write(Kr::Print::Error, "elsewhere\n"); }).join();
    EXPECT_EQ(reason.text("none"), "none");
    print->write(Kr::Print::Warning, "KrThing::read - a.xml:\n  line 3: too deep - really.\n");
    EXPECT_EQ(reason.text("none"), "a.xml: line 3: too deep - really");
    EXPECT_EQ(KrReason().text("none"), "none");
    print->write(Kr::Print::Error, "%s\n", std::string(5000, 'x').c_str());
    EXPECT_LT(reason.text("none").size(), 5000u);

    EXPECT_EQ(KrReason::sentence("KrReader - a.xml: empty"), "a.xml: empty");
    EXPECT_EQ(KrReason::sentence("one thing - another"), "one thing - another");
    EXPECT_EQ(KrReason::sentence("arm - another"), "arm - another");
}

TEST(KrPrint, DefaultSinkWritesToStandardErrorButNotDebug)
{
    testing::internal::CaptureStderr();
    Kr::Print::instance()->write(Kr::Print::Debug, "a secret\n");
    Kr::Print::instance()->write(Kr::Print::Error, "a {} failure\n");
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find("secret"), std::string::npos);
    EXPECT_NE(text.find("a {} failure\n"), std::string::npos);
    EXPECT_EQ(text.find("\n\n"), std::string::npos);
}

TEST(KrPrint, SinkMayPrintReplaceItselfAndThrow)
{
    Kr::Print* const print = Kr::Print::instance();
    std::vector<std::string> texts;
    const Kr::Print::Sink before = print->setSink([&](Kr::Print::Type, const std::string& text) {
        texts.push_back(text);
        if (text == "first") {
            print->write(Kr::Print::Info, "second");
            print->setSink([](Kr::Print::Type, const std::string&) { throw 1; });
            texts.push_back("still here");
        }
    });
    print->write(Kr::Print::Info, "first");
    EXPECT_NO_THROW(print->write(Kr::Print::Info, "third"));
    print->setSink(before);
    EXPECT_EQ(texts, (std::vector<std::string>{"first", "second", "still here"}));
}

TEST(KrPrint, ThreadsDoNotMixUp)
{
    MessageRecorder messages;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int j = 0; j < 500; ++j) {
                Kr::Print::instance()->write(Kr::Print::Info, "0123456789\n");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(messages.count(), 2000u);
    EXPECT_EQ(messages.count(Kr::Print::Info, "0123456789\n"), 2000u);
}

TEST(KrFileUtil, FindsRegularFilesInTheOrderOfTheSearchPath)
{
    namespace fs = std::filesystem;
    const fs::path folder = fs::path(testing::TempDir()) / "kr_file_util_test";
    fs::remove_all(folder);
    fs::create_directories(folder / "one" / "sub" / "folder.txt");
    fs::create_directories(folder / "two" / "sub");
    std::ofstream(folder / "one" / "both.txt") << "1";
    std::ofstream(folder / "two" / "both.txt") << "2";
    std::ofstream(folder / "two" / "sub" / "folder.txt") << "2";

    EXPECT_EQ(KrFileUtil::findFile("both.txt"), "");
    KrFileUtil::addDirectory((folder / "one").string());
    KrFileUtil::addDirectory((folder / "two").string());
    EXPECT_EQ(KrFileUtil::findFile("both.txt"), (folder / "one" / "both.txt").string());
    // In the first folder that name is a folder.
    EXPECT_EQ(KrFileUtil::findFile("sub/folder.txt"), (folder / "two" / "sub" / "folder.txt").string());
    EXPECT_EQ(KrFileUtil::findFile((folder / "two" / "both.txt").string()), (folder / "two" / "both.txt").string());
    EXPECT_EQ(KrFileUtil::findFile((folder / "two").string()), "");
    EXPECT_EQ(KrFileUtil::findFile(""), "");
    fs::remove_all(folder);
}

TEST(KrGL, PowerOf2RoundsUpAndStopsAtTheHighest)
{
    EXPECT_EQ(KrGL::powerOf2(0), 1u);
    EXPECT_EQ(KrGL::powerOf2(1), 1u);
    EXPECT_EQ(KrGL::powerOf2(64), 64u);
    EXPECT_EQ(KrGL::powerOf2(65), 128u);
    EXPECT_EQ(KrGL::powerOf2(0x80000001u), 0x80000000u);
}

TEST(KrINT2STRING, WritesExtremesInAnyBase)
{
    EXPECT_EQ(KrINT2STRING(LLONG_MIN, 2), "-1" + std::string(63, '0'));
    EXPECT_EQ(KrINT2STRING(255u, 16), "ff");
    EXPECT_EQ(KrINT2STRING(-10, 10), "-10");
}

TEST(KrText, WhatComesFromOutsideBecomesOneShortLineOfUtf8)
{
    EXPECT_EQ(KrText::oneLine("arm \xC3\xA4"), "arm \xC3\xA4");
    EXPECT_EQ(KrText::oneLine("gr\xFCn\n\x1B[2J"), "gr\xC3\xBCn  [2J"); // Latin-1; no escape sequence gets through
    EXPECT_EQ(KrText::oneLine("\xEF\xBF\xBF"), "\xEF\xBF\xBD");
    EXPECT_EQ(KrText::oneLine(std::string(10, 'a') + std::string(10, 'b'), 11), "aaaa...bbbb");
    // Every cut lies between characters.
    std::string umlauts;
    for (int i = 0; i < 100; ++i) {
        umlauts += "\xC3\xA4";
    }
    for (std::size_t longest = 8; longest < 40; ++longest) {
        const std::string line = KrText::oneLine(umlauts, longest);
        EXPECT_TRUE(KrText::isUtf8(line)) << longest;
        EXPECT_LE(line.size(), longest);
        EXPECT_GE(line.size() + 2, longest);
    }
}
