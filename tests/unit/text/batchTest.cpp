// The lines of a batch: labels, owners, and what the database files have besides.
#include "text/batch.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using store::BatchLine;

class Batch : public testing::Test {
protected:
    // Of the next line; "" when it is taken.
    std::string refusal(const std::string& text) {
        return reader_.read(text, ++number_, line_).value_or(std::string());
    }

    BatchLine line_;

private:
    store::BatchReader reader_;
    size_t number_ = 0;
};

TEST_F(Batch, LabelsStandOutsideOfQuotesOnly) {
    ASSERT_EQ(refusal("\"my [$host]\\\"\"[$a-1] instance t \"dns\" # of [$b]"), "");
    EXPECT_EQ(line_.line.name, "my [$host]\"");
    EXPECT_EQ(line_.label, "a-1");
    EXPECT_EQ(line_.line.instance.owner, 0x736E64U);
    ASSERT_EQ(refusal("\"my [$host]\\\"\"[$a-1].\"long name\" String \"[$x]\""), "");
    EXPECT_EQ(line_.line.member, "long name");
    EXPECT_EQ(line_.line.value.bytes, "[$x]");
    EXPECT_EQ(line_.label, "a-1");
    ASSERT_EQ(refusal("text String \"[$x]\" # [$y]"), "");
    EXPECT_EQ(line_.label, "");
    for (const std::string bad : {"h[$a b] removed", "h[$] removed", "h[$a removed"})
        EXPECT_TRUE(refusal(bad).starts_with("a label is")) << bad;
}

TEST_F(Batch, OnlyTheLineThatMakesALabelIsToBlame) {
    EXPECT_EQ(refusal("h[$b] instance t none"), "a decimal number is missing");
    EXPECT_EQ(refusal("h[$b] removed"), "");
    EXPECT_EQ(line_.line.kind, store::Line::Kind::blank);
}

TEST_F(Batch, AllOfAnOwnerAreRemovedByNameAlone) {
    ASSERT_EQ(refusal(" \"my h\" removed \"abcd\" # theirs"), "");
    EXPECT_EQ(line_.line.name, "my h");
    EXPECT_EQ(line_.owner, 0x64636261U);
    ASSERT_EQ(refusal("h[4294967295] removed"), "");
    EXPECT_EQ(line_.line.index, 4294967295U);
    EXPECT_FALSE(line_.owner);
}

}  // namespace
