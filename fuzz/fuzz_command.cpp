// Fuzz target "command": the line is given to DBG_CmdObserver::command three
// times, starting from the console, the IMC sink and a file sink. Each time
// the IMC calls (one answer, and for "DBG read" the instance of module 255
// and the posted request before it), the answer and the sink afterwards must
// be those the command table below gives.
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <typeinfo>
#include <vector>

#include "DBG_CmdObserver.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "DBG_Version.h"
#include "ExpectedTexts.h"
#include "FuzzRegistry.h"
#include "ImcCalls.h"
#include "ImcProbe.h"
#include "ScratchDir.h"
#include "ShutdownSocketPaths.h"

namespace {

using imc_standin::Call;
using imc_standin::Operation;

// What a command does beside answering.
enum class Effect { None, SelectOutput, Stop, ReadConfiguration, ReportVersion };

// The command table, written out as data: the first row, in this order,
// whose word occurs anywhere in the line decides. The last row's empty word
// occurs in every line: anything else gets the help text.
// "DBG out" answers its text, the current sink's name and a line end;
// "DBG version" its text, the version (or "unknown") and a line end.
struct CommandRow {
    char const* word;
    Effect effect;
    char const* answer;
};
constexpr CommandRow commandTable[] = {
    {"DBG memchk", Effect::None, "Binary is not instrumented\n"},
    {"DBG memtrc", Effect::None, "Binary is not instrumented\n"},
    {"DBG out", Effect::SelectOutput, "Debug Output set to "},
    {"DBG stop", Effect::Stop, "Stoping SIP gateway ...\n"},
    {"DBG read", Effect::ReadConfiguration, "Read configuration\n"},
    {"DBG version", Effect::ReportVersion, "Version is "},
    {"", Effect::None, expectedHelpText},
};

enum class SinkKind { Console, Imc, File };

// The option words of "DBG out", searched in the whole line the same way:
// the first row found selects its sink, none found leaves the sink as it
// is. The file name is the rest of the line behind the first "file ".
struct OptionRow {
    char const* word;
    SinkKind sink;
};
constexpr OptionRow outputOptions[] = {
    {"std", SinkKind::Console},
    {"imc", SinkKind::Imc},
    {"file ", SinkKind::File},
};

template <typename Row, std::size_t rows>
Row const* firstRowIn(Row const (&table)[rows], std::string const& line)
{
    for (Row const& row : table)
        if (line.find(row.word) != std::string::npos)
            return &row;
    return nullptr;
}

// What the tables say of one line.
struct Expectation {
    CommandRow const* command;
    OptionRow const* option;  // the selecting option of "DBG out", or null
    std::string fileName;
};

Expectation expectationOf(std::string const& line)
{
    Expectation expectation{firstRowIn(commandTable, line), nullptr, ""};
    if (expectation.command->effect == Effect::SelectOutput)
        expectation.option = firstRowIn(outputOptions, line);
    if (expectation.option && expectation.option->sink == SinkKind::File)
        expectation.fileName = line.substr(line.find(expectation.option->word) + std::strlen(expectation.option->word));
    return expectation;
}

bool selectsFile(Expectation const& expectation)
{
    return expectation.option && expectation.option->sink == SinkKind::File;
}

char const* kindName(SinkKind kind)
{
    switch (kind) {
    case SinkKind::Console: return "console";
    case SinkKind::Imc: return "IMC";
    case SinkKind::File: return "file";
    }
    return "?";
}

SinkKind kindOf(DBG_Output const* sink)
{
    if (typeid(*sink) == typeid(DBG_OutputImc))
        return SinkKind::Imc;
    if (typeid(*sink) == typeid(DBG_OutputFile))
        return SinkKind::File;
    return SinkKind::Console;
}

// The sink's own name: "console", "IMC" or "file <name>".
std::string sinkName(SinkKind kind, std::string const& fileName)
{
    return kind == SinkKind::File ? "file " + fileName : kindName(kind);
}

std::string expectedAnswer(Expectation const& expectation, std::string const& sinkBefore)
{
    switch (expectation.command->effect) {
    case Effect::SelectOutput:
        return expectation.command->answer +
               (expectation.option ? sinkName(expectation.option->sink, expectation.fileName) : sinkBefore) + "\n";
    case Effect::ReportVersion: {
        DBG_Version const version;
        return expectation.command->answer +
               (version.m_voipVersion.empty() ? std::string("unknown") : version.m_voipVersion) + "\n";
    }
    default:
        return expectation.command->answer;
    }
}

// Discards everything: standard output while commands run.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(char const*, std::streamsize count) override { return count; }
};

constexpr unsigned char standInIdentifier = 0x5A;

// The process-wide state the check needs: the IMC stand-in started with
// call recording, answers kept out of standard output, standard output
// itself discarded, and the working directory moved into a private scratch
// directory (file names of "DBG out file" land there). Made once per
// process; the scratch directory is removed at exit.
class CommandBench {
public:
    static CommandBench& instance()
    {
        static CommandBench bench;
        return bench;
    }

    std::string const& directory() const { return m_scratch.path(); }

    // "DBG stop" leaves its bound socket, /tmp//dbg<pid>.key.
    void removeStopSocket() const { unlink(ShutdownSocketPaths::ownPath().c_str()); }

    // Removed whole and made anew: the working directory is entered again.
    void emptyDirectory() const
    {
        removeTree(directory());
        if (mkdir(directory().c_str(), 0700) != 0 || chdir(directory().c_str()) != 0)
            throw std::runtime_error("cannot make " + directory() + " anew: " + std::strerror(errno));
    }

private:
    CommandBench()
    {
        static NullBuffer discard;
        m_previousOutput = std::cout.rdbuf(&discard);
        imc_standin::start(standInIdentifier);
        imc_standin::setTraceStream(nullptr);
        imc_standin::setPostHandler(nullptr);
        imc_standin::setAnswerHandler([](std::string const&) {});
        imc_standin::clearFaults();
        imc_standin::setRecording(true);

        char previous[4096];
        if (!getcwd(previous, sizeof previous))
            throw std::runtime_error(std::string("getcwd: ") + std::strerror(errno));
        m_previousDirectory = previous;
        if (chdir(directory().c_str()) != 0)
            throw std::runtime_error("cannot enter " + directory() + ": " + std::strerror(errno));
        removeStopSocket();
    }

    ~CommandBench()
    {
        DBG_OutManager::desinstance();  // closes a file sink before its directory goes
        imc_standin::setRecording(false);
        imc_standin::clearCalls();
        imc_standin::setAnswerHandler(nullptr);
        imc_standin::stop();
        removeStopSocket();
        // The discarding buffer outlives this object; std::cout is flushed
        // once more when the program ends.
        std::cout.rdbuf(m_previousOutput);
        if (chdir(m_previousDirectory.c_str()) != 0)
            std::perror("fuzz_command: chdir back");
    }

    ScratchDir m_scratch;
    std::string m_previousDirectory;
    std::streambuf* m_previousOutput = nullptr;
};

// A name the check can look for in the scratch directory.
bool plainName(std::string const& name)
{
    if (name.empty() || name.size() > 64 || name == "." || name == "..")
        return false;
    for (unsigned char c : name)
        if (!(std::isalnum(c) || c == '.' || c == '_' || c == '-'))
            return false;
    return true;
}

// The configuration request "DBG read" posts: code 600, sent by the
// stand-in's identifier.
std::vector<unsigned char> expectedRequest()
{
    std::vector<unsigned char> bytes(2060, 0);
    bytes[2] = standInIdentifier;
    std::uint32_t const code = 600;
    std::memcpy(&bytes[8], &code, sizeof code);
    return bytes;
}

std::string checkCalls(Effect effect, std::string const& answer)
{
    std::vector<Call> const& calls = imc_standin::calls();
    std::size_t index = 0;
    if (effect == Effect::ReadConfiguration) {
        if (calls.size() != 3 || calls[0].operation != Operation::Instance || calls[0].number != 255 ||
            calls[1].operation != Operation::Post)
            return "\"DBG read\" must ask for manager 255, post once and answer once; calls:" + describeCalls(calls);
        if (calls[1].record != expectedRequest())
            return "the posted configuration request differs from the 600 record";
        index = 2;
    } else if (calls.size() != 1) {
        return "expected exactly one answer and no other IMC call; calls:" + describeCalls(calls);
    }
    if (calls[index].operation != Operation::AnswerCommand)
        return "the last IMC call is not the answer; calls:" + describeCalls(calls);
    if (calls[index].text != answer)
        return "answer " + quoted(calls[index].text) + ", expected " + quoted(answer);
    return "";
}

std::string checkSink(Expectation const& expectation, DBG_Output const* before, DBG_Output const* after)
{
    if (!expectation.option)
        return after == before ? "" : "the sink was replaced although the line selects none";
    SinkKind const wanted = expectation.option->sink;
    if (kindOf(after) != wanted)
        return std::string("sink is ") + kindName(kindOf(after)) + ", expected " + kindName(wanted);
    if (wanted != SinkKind::File)
        return "";
    if (std::string(*after) != sinkName(wanted, expectation.fileName))
        return "file sink named " + quoted(std::string(*after));
    struct stat status;
    if (plainName(expectation.fileName) &&
        (stat(expectation.fileName.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size != 0))
        return "no empty file " + quoted(expectation.fileName) + " in the working directory";
    return "";
}

std::string checkCommand(std::uint8_t const* data, std::size_t size)
{
    CommandBench& bench = CommandBench::instance();
    std::string line(reinterpret_cast<char const*>(data), size);
    Expectation expectation = expectationOf(line);
    if (selectsFile(expectation)) {
        // No file name reaches outside the scratch directory.
        for (std::string::size_type i = line.size() - expectation.fileName.size(); i < line.size(); ++i)
            if (line[i] == '/')
                line[i] = '_';
        expectation = expectationOf(line);
    }

    DBG_OutManager* manager = DBG_OutManager::instance();
    if (!manager->pCmdObserver)
        return "the output manager has no command observer";
    std::string failure;
    for (SinkKind start : {SinkKind::Console, SinkKind::Imc, SinkKind::File}) {
        switch (start) {
        case SinkKind::Console: manager->setConsoleOutput(); break;
        case SinkKind::Imc: manager->setImcOutput(); break;
        case SinkKind::File: manager->setFileOutput("start.trace"); break;
        }
        DBG_Output const* const before = manager->pOutput;
        std::string const answer = expectedAnswer(expectation, std::string(*before));

        imc_standin::clearCalls();
        bench.removeStopSocket();
        try {
            manager->pCmdObserver->command(line, 0);
        } catch (std::exception const& error) {
            failure = std::string("command threw ") + typeid(error).name() + ": " + error.what();
        }
        bench.removeStopSocket();
        if (failure.empty())
            failure = checkCalls(expectation.command->effect, answer);
        if (failure.empty())
            failure = checkSink(expectation, before, manager->pOutput);
        if (!failure.empty()) {
            failure = "line " + quoted(line) + " from the " + kindName(start) + " sink: " + failure;
            break;
        }
    }
    manager->setConsoleOutput();
    imc_standin::clearCalls();
    if (selectsFile(expectation))
        bench.emptyDirectory();  // "start.trace" is only ever truncated
    return failure;
}

dbg_fuzz::Registration const registration("command", checkCommand);

}  // namespace
