// Writes and name-taking members accept values and temporaries as well as variables; only the
// variable forms write the adjusted value back.

#include "tests/sim/GraphFixture.h"

namespace corvid::testing {
namespace {

using SurfaceOverloadsTest = BehaviourTest;

TEST_F(SurfaceOverloadsTest, ValuesAndTemporariesWriteAsVariablesDoWithoutWriteBack) {
    player->put_FileName(Mp3);
    EXPECT_EQ(player->get_FileName(), Mp3);
    player->put_AutoSeg(true);
    EXPECT_TRUE(player->get_AutoSeg());
    player->put_ThisCartName("cart 7");
    EXPECT_EQ(player->get_ThisCartName(), "cart 7");

    // A volume above full is held at full: the variable learns it, the value stays as given.
    const int32_t loud = 500;
    player->put_Volume(loud);
    EXPECT_EQ(player->get_Volume(), 0);
    int32_t variable = 500;
    player->put_Volume(variable);
    EXPECT_EQ(variable, 0);
}

} // namespace
} // namespace corvid::testing
