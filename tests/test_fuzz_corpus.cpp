// The committed fuzz corpora (fuzz/corpus/<target>/), replayed under the
// main compiler: every file through the same property check that the
// libFuzzer target runs (fuzz/FuzzProperties.h).
#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FuzzProperties.h"
#include "TestSupport.h"

#ifndef DBG_FUZZ_CORPUS_DIR
#error "DBG_FUZZ_CORPUS_DIR must name fuzz/corpus"
#endif

namespace {

std::string contentOf(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << path;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Every file of the target's corpus through its check; the corpus must not
// be empty.
void replay(std::string const& target)
{
    std::string const directory = std::string(DBG_FUZZ_CORPUS_DIR) + "/" + target;
    std::vector<std::string> const files = entriesOf(directory);
    ASSERT_FALSE(files.empty()) << "no seed inputs in " << directory;
    for (std::string const& file : files) {
        std::string const input = contentOf(directory + "/" + file);
        std::string const failure = dbg_fuzz::checkTarget(
            target, reinterpret_cast<std::uint8_t const*>(input.data()), input.size());
        EXPECT_EQ(failure, "") << target << "/" << file;
    }
    std::printf("[ CORPUS   ] %s: %zu inputs replayed\n", target.c_str(), files.size());
}

}  // namespace

TEST(FuzzCorpus, EveryDirectoryIsATargetAndEveryTargetHasOne)
{
    std::vector<std::string> targets = dbg_fuzz::targetNames();
    std::sort(targets.begin(), targets.end());
    EXPECT_EQ(entriesOf(DBG_FUZZ_CORPUS_DIR), targets);
}

TEST(FuzzCorpus, CommandLinesGetTheirOneAnswerAndSink)
{
    replay("command");
}

TEST(FuzzCorpus, ConfigurationFilesGiveTheModelsValues)
{
    replay("version");
}

TEST(FuzzCorpus, HexaDumpsMatchTheModel)
{
    replay("hexadump");
}

TEST(FuzzCorpus, PercentSignsAreDoubledAndNothingElse)
{
    replay("percent");
}

TEST(FuzzCorpus, ImcSinkTextsFollowTheBufferModel)
{
    replay("imc_sink");
}
