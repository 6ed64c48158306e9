#include <xalutil/Optional.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

using xalutil::Optional;

TEST(OptionalTest, IsAbsentAtFirst) {
    EXPECT_FALSE(Optional<int>().isValid());
}

TEST(OptionalTest, HoldsWhatItWasMadeFrom) {
    const Optional<std::string> text(std::string("text"));
    EXPECT_TRUE(text.isValid());
    EXPECT_EQ(text.getValue(), "text");
}

TEST(OptionalTest, SetValueReplaces) {
    Optional<std::string> text(std::string("old"));
    text.setValue("new");
    EXPECT_EQ(text.getValue(), "new");
}

TEST(OptionalTest, ResetMakesItAbsent) {
    Optional<int> number(1);
    number.reset();
    EXPECT_FALSE(number.isValid());
}

TEST(OptionalTest, ReadingAnAbsentOneThrows) {
    const Optional<int> absent;
    try {
        absent.getValue();
        FAIL() << "there was a value";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "getValue called on uninitialized Optional");
    }
}

TEST(OptionalTest, IsNotMadeFromAValueUnasked) {
    EXPECT_FALSE((std::is_convertible_v<int, Optional<int>>));
    EXPECT_TRUE((std::is_constructible_v<Optional<int>, int>));
}

TEST(OptionalTest, PresenceTestDoesNotThrow) {
    EXPECT_TRUE(noexcept(Optional<int>().isValid()));
}

} // namespace
