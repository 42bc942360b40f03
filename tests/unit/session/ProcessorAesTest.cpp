#include "session/ProcessorAes.h"

#include "support/ProcessorFlags.h"

#include <gtest/gtest.h>

TEST(ProcessorAes, IsWhatTheKernelLists)
{
    const auto listed = TarnisTest::kernelListsAes();
    if (!listed.has_value()) {
        GTEST_SKIP() << "the kernel does not list the processor's features";
    }
    EXPECT_EQ(Tarnis::hasAesInstructions(), *listed);
}
