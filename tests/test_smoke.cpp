#include <gtest/gtest.h>

#include "DBG_Output.h"
#include "TestSupport.h"

TEST(ConsoleSink, DisplayNameIsConsole)
{
    DBG_Output console;
    EXPECT_EQ(std::string(console), "console");
}
