#include "server/sequenceSize.h"

#include <gtest/gtest.h>

namespace {

TEST(SequenceSize, BoundsChangesAndAllowsASingleRemoval) {
    constexpr size_t rows = 1000000;
    SequenceSize size;
    size_t values = 0;
    while (size.takeWrite("name", 4000))
        values += 4000;
    EXPECT_TRUE(values < SequenceSize::limit && values > SequenceSize::limit / 5 * 4);
    EXPECT_TRUE(size.takeWrite("name", 4)) << "there is room for a smaller one";
    EXPECT_TRUE(size.takeRemoval("name", rows)) << "the limit is not passed yet";
    EXPECT_FALSE(size.takeRemoval("name", 1) || size.takeWrite("name", 1) || size.takeInstance("name", "t"));
    size = {};
    EXPECT_TRUE(size.takeRemoval("name", rows / 10)) << "within the limit it is one among others";
    EXPECT_TRUE(size.takeRemoval("name", rows) && !size.takeRemoval("name", 1));
}

}  // namespace
