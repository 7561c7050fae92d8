#include "base/Uuid.h"

#include <gtest/gtest.h>
#include <regex>
#include <unordered_set>

using namespace sonvale;

TEST(Uuid, RandomTextIsCanonicalUpperCaseVersion4) {
    const std::regex canonical(
        "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(std::regex_match(Uuid::random().text(), canonical));
}

TEST(Uuid, ParsesEitherCaseAndPrintsUpperCase) {
    auto id = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->text(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid::parse(id->text()), id);
}

TEST(Uuid, RejectsMalformedText) {
    EXPECT_FALSE(Uuid::parse(""));
    EXPECT_FALSE(Uuid::parse("E621E1F8C36C495A93FC0C247A3E6E5F"));
    EXPECT_FALSE(Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5G"));
    EXPECT_FALSE(Uuid::parse("E621E1F8-C36C-495A-93FC_0C247A3E6E5F"));
    EXPECT_FALSE(Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F0"));
}

TEST(Uuid, RandomIdsDoNotRepeatAndHashApart) {
    std::unordered_set<Uuid> ids;
    for (int i = 0; i < 10000; ++i)
        ids.insert(Uuid::random());
    EXPECT_EQ(ids.size(), 10000u);
    EXPECT_TRUE(Uuid().isNil());
    EXPECT_FALSE(Uuid::random().isNil());
}
