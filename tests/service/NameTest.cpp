#include "Name.h"

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

TEST(WrittenName, CarriesTheFlagOfItsPrefix) {
    EXPECT_EQ(readWrittenName("RefreshField^true>>A").isNew, true);
    EXPECT_EQ(readWrittenName("RefreshField^false>>A").isNew, false);
    EXPECT_EQ(readWrittenName("RefreshField^false>>A").name, "A");
}

TEST(WrittenName, WithoutAPrefixIsTheNameAndCarriesNoFlag) {
    EXPECT_EQ(readWrittenName("A").isNew, std::nullopt);
    EXPECT_EQ(readWrittenName("A").name, "A");
}

TEST(WrittenName, MayBeEmptyBehindThePrefix) {
    EXPECT_EQ(readWrittenName("RefreshField^true>>").name, "");
    EXPECT_EQ(readWrittenName("RefreshField^true>>").isNew, true);
}

TEST(WrittenName, LosesThePrefixOnce) {
    EXPECT_EQ(readWrittenName("RefreshField^true>>RefreshField^false>>A").name, "RefreshField^false>>A");
}

TEST(WrittenName, TakesNothingElseForAPrefix) {
    for (const char* name :
         {"RefreshField^TRUE>>A", "RefreshField^true>A", " RefreshField^true>>A", "A RefreshField^true>>"}) {
        EXPECT_EQ(readWrittenName(name).name, name);
        EXPECT_EQ(readWrittenName(name).isNew, std::nullopt);
    }
}

} // namespace
} // namespace cdxservice
