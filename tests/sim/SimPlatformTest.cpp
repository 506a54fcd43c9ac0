#include "platform/sim/SimPlatform.h"
#include <gtest/gtest.h>
TEST(SimPlatformSmoke, Builds) { auto sim = corvid::sim::SimPlatform::standardMachine(); }
