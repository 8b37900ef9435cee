// The committed fuzz corpora (fuzz/corpus/<target>/), replayed under the
// main compiler: every file through the same property check that the
// libFuzzer target runs (fuzz/fuzz_<target>.cpp), for every target that
// fuzz/targets.txt lists.
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FuzzRegistry.h"
#include "TestSupport.h"

#ifndef DBG_FUZZ_DIR
#error "DBG_FUZZ_DIR must name fuzz/"
#endif

namespace {

std::string const corpusDirectory = std::string(DBG_FUZZ_DIR) + "/corpus";

// The lines of fuzz/targets.txt, as CMake and fuzz/run.sh read them.
std::vector<std::string> listedTargets()
{
    std::ifstream list(std::string(DBG_FUZZ_DIR) + "/targets.txt");
    std::vector<std::string> names;
    for (std::string name; std::getline(list, name);)
        names.push_back(name);
    return names;
}

std::string contentOf(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << path;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

class FuzzCorpus : public testing::TestWithParam<std::string> {};

}  // namespace

TEST(FuzzTargets, TheListNamesEveryCorpusAndEveryRegisteredCheck)
{
    std::vector<std::string> listed = listedTargets();
    ASSERT_FALSE(listed.empty()) << "no targets in " << DBG_FUZZ_DIR << "/targets.txt";
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(entriesOf(corpusDirectory), listed);
    EXPECT_EQ(dbg_fuzz::registeredTargets(), listed);
}

// Every seed of the target's corpus through its check; the corpus must not
// be empty.
TEST_P(FuzzCorpus, EverySeedHoldsTheProperty)
{
    std::string const directory = corpusDirectory + "/" + GetParam();
    std::vector<std::string> const files = entriesOf(directory);
    ASSERT_FALSE(files.empty()) << "no seed inputs in " << directory;
    for (std::string const& file : files) {
        std::string const input = contentOf(directory + "/" + file);
        std::string const failure =
            dbg_fuzz::check(GetParam(), reinterpret_cast<std::uint8_t const*>(input.data()), input.size());
        EXPECT_EQ(failure, "") << GetParam() << "/" << file;
    }
    std::printf("[ CORPUS   ] %s: %zu inputs replayed\n", GetParam().c_str(), files.size());
}

INSTANTIATE_TEST_SUITE_P(Listed, FuzzCorpus, testing::ValuesIn(listedTargets()),
                         [](testing::TestParamInfo<std::string> const& info) { return info.param; });
