// The library's sources built against IMC headers that name and type the
// manager's identifier and the record's fields otherwise than the stand-in:
// they compile, and the bytes the manager receives are the same.
#include <gtest/gtest.h>

#include "DBG_CmdObserver.h"
#include "DBG_InManager.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "ReferenceModels.h"
#include "RenamedManager.h"

namespace {

class RenamedImcHeaders : public ::testing::Test {
protected:
    void TearDown() override
    {
        DBG_InManager::desinstance();
        DBG_OutManager::desinstance();
        renamed_imc::posted.clear();
        renamed_imc::received.clear();
        renamed_imc::consoleFlagOnReceive.clear();
    }

    IMC_Manager& manager = renamed_imc::start(0xC3);
};

}  // namespace

TEST_F(RenamedImcHeaders, PostedRecordIsByteIdentical)
{
    DBG_CmdObserver observer(&manager);
    observer.startCommand();
    ASSERT_EQ(renamed_imc::posted.size(), 1u);
    EXPECT_EQ(renamed_imc::posted[0], configurationRequestModel(0xC3));
}

TEST_F(RenamedImcHeaders, ConsoleSetsTheFlagBeforeHandingTheLineOn)
{
    Tcl_FindExecutable(nullptr);
    DBG_InManager::instance()->onStdInput("DBG out");
    EXPECT_EQ(renamed_imc::received, std::vector<std::string>{"DBG out"});
    EXPECT_EQ(renamed_imc::consoleFlagOnReceive, std::vector<int>{1});
}

TEST_F(RenamedImcHeaders, LoggerDesignatesTheManagersIntegerMember)
{
    DBG_Log const log;
    EXPECT_EQ(log.m_imcValue, &manager.traceLevel);
}
