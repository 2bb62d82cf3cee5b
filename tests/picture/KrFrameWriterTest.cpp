#include <picture/KrFrameWriter.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{

/// Lends and submits a frame of 4 x 2 pixels whose bytes are all `value`; where it was stored.
unsigned char* add(KrFrameWriter& writer, unsigned char value)
{
    unsigned char* const memory = writer.lend(4, 2);
    if (memory) {
        std::memset(memory, value, 4 * 2 * 3);
        writer.submit();
    }
    return memory;
}

} // namespace

TEST(KrFrameWriter, WritesEveryFrameInOrderBesideTheCallerFromAFewPictures)
{
    std::vector<unsigned int> written;
    std::thread::id thread;
    KrFrameWriter writer(2, [&](const KrImage& picture, std::size_t number, std::string&) {
        EXPECT_EQ(number, written.size());
        EXPECT_EQ(picture.width(), 2u);
        EXPECT_EQ(picture.height(), 1u);
        written.push_back(picture.data()[5]);
        thread = std::this_thread::get_id();
        return true;
    });
    std::set<unsigned char*> places;
    for (unsigned int i = 0; i < 100; ++i) {
        places.insert(add(writer, static_cast<unsigned char>(i)));
    }
    std::string reason;
    EXPECT_TRUE(writer.finish(reason)) << reason;
    ASSERT_EQ(written.size(), 100u);
    for (unsigned int i = 0; i < 100; ++i) {
        EXPECT_EQ(written[i], i);
    }
    EXPECT_EQ(writer.numWritten(), 100u);
    EXPECT_LE(places.size(), 4u);
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(KrFrameWriter, AFastCallerWaitsForTheWriting)
{
    std::promise<void> gate;
    const std::shared_future<void> opened = gate.get_future().share();
    std::atomic<int> numAdded{0};
    KrFrameWriter writer(1, [&](const KrImage&, std::size_t, std::string&) {
        opened.wait();
        return true;
    });
    std::thread caller([&] {
        for (int i = 0; i < 10; ++i) {
            add(writer, 1);
            ++numAdded;
        }
    });
    while (numAdded < 4) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(numAdded, 4) << "no fifth frame has a place";
    gate.set_value();
    caller.join();
    std::string reason;
    EXPECT_TRUE(writer.finish(reason)) << reason;
    EXPECT_EQ(writer.numWritten(), 10u);
}

TEST(KrFrameWriter, AFailureReachesTheCallerAndEndsTheWriting)
{
    for (const bool isThrown : {false, true}) {
        std::size_t calls = 0;
        KrFrameWriter writer(1, [&](const KrImage&, std::size_t number, std::string& reason) {
            ++calls;
            if (number == 2 && isThrown) {
                throw std::runtime_error("the disk is full");
            }
            reason = number == 2 ? "the disk is full" : "";
            return number != 2;
        });
        int added = 0;
        while (add(writer, 0) && added < 100) {
            ++added;
        }
        EXPECT_LT(added, 10) << "nothing is lent any more";
        EXPECT_TRUE(writer.hasFailed());
        std::string reason;
        EXPECT_FALSE(writer.finish(reason));
        EXPECT_EQ(reason, "the disk is full");
        EXPECT_EQ(calls, 3u);
        EXPECT_EQ(writer.numWritten(), 2u);
    }
}
