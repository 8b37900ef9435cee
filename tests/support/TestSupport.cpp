#include "TestSupport.h"

#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <iterator>

#include <gtest/gtest.h>

#include "DBG_OutManager.h"
#include "IMC_StandIn.h"

CoutCapture::CoutCapture() : m_previous(std::cout.rdbuf(m_captured.rdbuf()))
{
}

CoutCapture::~CoutCapture()
{
    std::cout.rdbuf(m_previous);
}

std::string CoutCapture::text() const
{
    return m_captured.str();
}

ScratchDir::ScratchDir()
{
    char const* base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/dbg-test-XXXXXX";
    if (!mkdtemp(&pattern[0]))
        throw std::runtime_error("cannot create a scratch directory " + pattern);
    m_path = pattern;
}

namespace {
int removeEntry(char const* path, struct stat const*, int, struct FTW*)
{
    return remove(path);
}
}  // namespace

ScratchDir::~ScratchDir()
{
    nftw(m_path.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string readFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << path;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void writeFile(std::string const& path, std::string const& content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    ASSERT_TRUE(file.good()) << "cannot write " << path;
}

bool fileExists(std::string const& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

RecordingSink::~RecordingSink()
{
    m_events->push_back("destroyed");
}

DBG_Output& RecordingSink::operator<<(std::string const& text)
{
    m_events->push_back("text:" + text);
    return *this;
}

DBG_Output& RecordingSink::operator<<(int number)
{
    m_events->push_back("int:" + std::to_string(number));
    return *this;
}

DBG_Output& RecordingSink::operator<<(unsigned char character)
{
    m_events->push_back(std::string("char:") + char(character));
    return *this;
}

void RecordingSink::flush(bool isError, std::string origin, int line)
{
    m_events->push_back("flush:" + std::to_string(isError) + ":" + origin + ":" + std::to_string(line));
}

ImcSession::ImcSession(unsigned char identifier)
{
    imc_standin::start(identifier);
    imc_standin::setTraceStream(nullptr);
    imc_standin::clearFaults();
    imc_standin::clearCalls();
    imc_standin::setRecording(true);
}

ImcSession::~ImcSession()
{
    imc_standin::clearFaults();
    DBG_OutManager::desinstance();
    imc_standin::setRecording(false);
    imc_standin::clearCalls();
    imc_standin::stop();
    imc_standin::setTraceStream(&std::cout);
}
