#include <tests/support/JointedSystems.h>

#include <picture/KrMotion.h>

#include <gtest/gtest.h>

using namespace JointedSystems;

TEST(KrMotion, IsPlayedByItsTimesUnlessARateIsGiven)
{
    const KrStatedSystem system = twoRobots();
    const auto motion = [&system](const std::vector<double>& times) {
        KrMotion result(system, {});
        for (const double time : times) {
            result.add(time, {});
        }
        return result;
    };
    using Times = std::vector<double>;
    const KrMotion timed = motion({10.0, 10.5, 14.0});
    EXPECT_EQ(timed.schedule(std::nullopt), (Times{0.0, 0.5, 4.0, 6.0})); // the last for the mean step
    EXPECT_EQ(timed.schedule(4.0), (Times{0.0, 0.25, 0.5, 0.75}));
    EXPECT_EQ(timed.framesPerSecond(), 0.5);
    EXPECT_FALSE(timed.isEven());
    EXPECT_TRUE(motion({0.0, 0.9, 2.1, 3.0}).isEven());
    for (const Times& none : {Times{3.0}, Times{0.0, 0.0}}) {
        EXPECT_EQ(motion(none).framesPerSecond(), 30.0);
        EXPECT_TRUE(motion(none).isEven());
        EXPECT_EQ(motion(none).schedule(2.0).back(), 0.5 * static_cast<double>(none.size()));
    }
}
