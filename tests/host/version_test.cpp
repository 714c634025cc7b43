#include "yinet/host/version.h"

#include <gmock/gmock.h>

TEST(Version, IsThreeNumbers) { EXPECT_THAT(yinet_version(), testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+")); }
